#pragma once
// An output that keeps what is printed on it, one entry for each call.

#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "base/Output.h"

namespace vorrim::testing {

class RecordingOutput final : public Output {
public:
    std::vector<std::string> texts() const {
        const std::lock_guard hold(lock_);
        return texts_;
    }
    // All of it in a row.
    std::string all() const {
        std::string joined;
        for (const std::string& text : texts())
            joined += text;
        return joined;
    }

    void vprintLine(const char* format, va_list arguments) override
        __attribute__((format(printf, 2, 0))) {
        keep(format, arguments, "\n");
    }
    void vprintError(const char* format, va_list arguments) override
        __attribute__((format(printf, 2, 0))) {
        keep(format, arguments, "");
    }
    void vprintVerbose(const char* format, va_list arguments) override
        __attribute__((format(printf, 2, 0))) {
        if (verbose()) keep(format, arguments, "");
    }
    void vprintLocked(const char* format, va_list arguments) override
        __attribute__((format(printf, 2, 0))) {
        keep(format, arguments, "");
    }

private:
    __attribute__((format(printf, 2, 0))) void keep(const char* format, va_list arguments,
                                                    const char* end) {
        char text[kLockedBuffer];
        std::vsnprintf(text, sizeof text, format, arguments);
        const std::lock_guard hold(lock_);
        texts_.push_back(std::string(text) + end);
    }

    mutable std::mutex lock_;
    std::vector<std::string> texts_;
};

}  // namespace vorrim::testing
