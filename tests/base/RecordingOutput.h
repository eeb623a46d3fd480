#pragma once
// The current output for as long as it lives; keeps what is printed on it, chatter behind "V:".

#include <cstdio>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "base/Output.h"

namespace vorrim {

class RecordingOutput : public Output {
public:
    // One entry for each print.
    std::vector<std::string> texts() const {
        const std::lock_guard hold(lock_);
        return texts_;
    }
    // All of it in a row, and forgets it.
    std::string take() {
        const std::lock_guard hold(lock_);
        std::string joined;
        for (const std::string& text : std::exchange(texts_, {}))
            joined += text;
        return joined;
    }

    void vprintLine(const char* format, va_list arguments) override {
        keep(format, arguments, "\n");
    }
    void vprintError(const char* format, va_list arguments) override { keep(format, arguments); }
    void vprintVerbose(const char* format, va_list arguments) override {
        if (verbose()) keep(format, arguments, "", "V:");
    }
    void vprintLocked(const char* format, va_list arguments) override { keep(format, arguments); }

private:
    void keep(const char* format, va_list arguments, const char* end = "", const char* begin = "") {
        char text[kLockedBuffer];
        std::vsnprintf(text, sizeof text, format, arguments);
        const std::lock_guard hold(lock_);
        texts_.push_back(std::string(begin) + text + end);
    }

    mutable std::mutex lock_;
    std::vector<std::string> texts_;
    ScopedOutput current_{*this};
};

}  // namespace vorrim
