#pragma once
// Which files lie under the paths that somebody named.

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vorrim::cli {

struct FoundFile {
    std::string path;
    std::uint64_t size;
};

struct FoundFiles {
    std::vector<FoundFile> files;  // sorted by path within each named path
    std::uint64_t bytes = 0;
    std::uint64_t unreadable = 0;  // folders that could not be listed, files that could not be seen
};

// Regular files only. A named path may itself be a link; links found inside folders are not
// followed. Raises Failure for a named path that does not exist.
[[nodiscard]] FoundFiles find_files(std::span<const std::string> paths);

}  // namespace vorrim::cli
