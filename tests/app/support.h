#pragma once
// What the tests of this floor share.

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

#include "base/Output.h"

namespace vorrim {

// An empty folder that is the current one as long as it exists.
class ScratchFolder final {
public:
    ScratchFolder() : before_(std::filesystem::current_path()) {
        std::string name = (std::filesystem::temp_directory_path() / "vorrim-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) std::abort();
        path_ = name;
        std::filesystem::current_path(path_);
    }
    ~ScratchFolder() {
        std::filesystem::current_path(before_);
        std::filesystem::remove_all(path_);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    [[nodiscard]] std::string path() const { return path_.string(); }

    static void write(const std::string& name, const std::string& text) {
        std::ofstream(name, std::ios::binary) << text;
    }
    static std::string read(const std::string& name) {
        std::ifstream file(name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    std::filesystem::path before_;
    std::filesystem::path path_;
};

// Remembers what is printed.
class RecordingOutput final : public Output {
public:
    void vprintLine(const char* format, va_list arguments) override
        __attribute__((format(printf, 2, 0))) {
        vprintError(format, arguments);
        text += '\n';
    }
    void vprintError(const char* format, va_list arguments) override
        __attribute__((format(printf, 2, 0))) {
        std::array<char, 4096> line{};
        std::vsnprintf(line.data(), line.size(), format, arguments);
        text += line.data();
    }
    void vprintVerbose(const char* format, va_list arguments) override
        __attribute__((format(printf, 2, 0))) {
        if (verbose()) vprintError(format, arguments);
    }

    std::string text;
};

}  // namespace vorrim
