#pragma once
// A folder of a test's own, gone with the test.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdlib.h>
#include <string>
#include <string_view>

namespace vorrim {

class ScratchFolder {
public:
    ScratchFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "vorrim-XXXXXX").string();
        path_ = std::filesystem::canonical(::mkdtemp(name.data()));
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    ~ScratchFolder() {
        std::error_code ignored;  // what cannot be removed is left to the system's own tidying
        std::filesystem::remove_all(path_, ignored);
    }

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    // The whole content; empty when there is no such file.
    [[nodiscard]] std::string read(std::string_view name) const {
        std::ifstream file(path_ / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    void write(std::string_view name, std::string_view content) const {
        std::ofstream(path_ / name, std::ios::binary) << content;
    }
    [[nodiscard]] bool has(std::string_view name) const {
        return std::filesystem::exists(path_ / name);
    }

private:
    std::filesystem::path path_;
};

// One that is the current folder as long as it exists.
class CurrentFolder final : public ScratchFolder {
public:
    CurrentFolder() { std::filesystem::current_path(path()); }
    ~CurrentFolder() { std::filesystem::current_path(before_); }

private:
    const std::filesystem::path before_ = std::filesystem::current_path();
};

}  // namespace vorrim
