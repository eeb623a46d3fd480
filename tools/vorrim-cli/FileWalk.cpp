#include "FileWalk.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "Failure.h"
#include "Text.h"

namespace vorrim::cli {

namespace fs = std::filesystem;

namespace {

class Walk {
public:
    explicit Walk(FoundFiles& found) : found_(found) {}

    void named(const std::string& path) {
        std::error_code error;
        const fs::file_status status = fs::status(path, error);
        if (error) throw Failure("cannot publish " + printable(path) + ": " + error.message());
        const auto first = static_cast<std::ptrdiff_t>(found_.files.size());
        if (fs::is_directory(status)) {
            folders_.push_back(path);
            while (!folders_.empty()) {
                const fs::path folder = std::move(folders_.back());
                folders_.pop_back();
                list(folder);
            }
        } else if (fs::is_regular_file(status)) {
            file(fs::directory_entry(path));
        } else {
            throw Failure("cannot publish " + printable(path) + ": it is no file and no folder");
        }
        std::sort(found_.files.begin() + first, found_.files.end(),
                  [](const FoundFile& a, const FoundFile& b) { return a.path < b.path; });
    }

private:
    void list(const fs::path& folder) {
        std::error_code error;
        fs::directory_iterator entry(folder, error);
        while (!error && entry != fs::directory_iterator()) {
            std::error_code unseen;
            if (entry->is_symlink(unseen)) {
                // Its target is published where it lies, if it lies under a named path.
            } else if (entry->is_directory(unseen)) {
                folders_.push_back(entry->path());
            } else if (entry->is_regular_file(unseen)) {
                file(*entry);
            }
            if (unseen) ++found_.unreadable;
            entry.increment(error);
        }
        if (error) ++found_.unreadable;
    }

    void file(const fs::directory_entry& entry) {
        std::error_code error;
        const std::uintmax_t size = entry.file_size(error);
        if (error) {
            ++found_.unreadable;
            return;
        }
        found_.files.push_back({entry.path().string(), size});
        found_.bytes += size;
    }

    FoundFiles& found_;
    std::vector<fs::path> folders_;  // still to be listed; depth is no matter
};

}  // namespace

FoundFiles find_files(std::span<const std::string> paths) {
    FoundFiles found;
    Walk walk(found);
    for (const std::string& path : paths)
        walk.named(path);
    return found;
}

}  // namespace vorrim::cli
