#pragma once
// A folder of a test's own, gone with the test.

#include <filesystem>
#include <string>
#include <string_view>

namespace vorrim::wire {

class ScratchFolder final {
public:
    ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    ~ScratchFolder();

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    // The whole content; empty when there is no such file.
    [[nodiscard]] std::string read(std::string_view name) const;
    void write(std::string_view name, std::string_view content) const;
    [[nodiscard]] bool has(std::string_view name) const;

private:
    std::filesystem::path path_;
};

}  // namespace vorrim::wire
