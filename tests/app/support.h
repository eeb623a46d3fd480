#pragma once
// What the tests of this floor share.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

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

}  // namespace vorrim
