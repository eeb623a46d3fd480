// Which files are found, and what their hashes are.

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "Failure.h"
#include "FileHasher.h"
#include "FileWalk.h"

namespace vorrim::cli {
namespace {

namespace fs = std::filesystem;

class Folder {
public:
    Folder() {
        std::string pattern = (fs::temp_directory_path() / "vorrim-cli-XXXXXX").string();
        path_ = ::mkdtemp(pattern.data());
    }
    ~Folder() { fs::remove_all(path_); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    void write(const std::string& name, const std::string& content) const {
        fs::create_directories((path_ / name).parent_path());
        std::ofstream(path_ / name, std::ios::binary) << content;
    }
    [[nodiscard]] std::string at(const std::string& name) const { return (path_ / name).string(); }
    [[nodiscard]] const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

std::vector<std::string> names(const FoundFiles& found, const Folder& folder) {
    std::vector<std::string> result;
    for (const FoundFile& file : found.files) {
        result.push_back(fs::relative(file.path, folder.path()).string());
    }
    return result;
}

TEST(FileWalkTest, FindsRegularFilesAndFollowsNoLinkInside) {
    const Folder folder;
    folder.write("b", "22");
    folder.write("a/deep/er", "333");
    folder.write("elsewhere/x", "x");
    fs::create_directory_symlink(folder.path(), folder.at("a/loop"));
    fs::create_symlink(folder.at("b"), folder.at("a/link"));
    ASSERT_EQ(::mkfifo(folder.at("a/pipe").c_str(), 0600), 0);
    fs::create_directory_symlink(folder.at("elsewhere"), folder.at("named"));

    const FoundFiles found = find_files(std::vector<std::string>{folder.at("a"), folder.at("b")});
    EXPECT_EQ(names(found, folder), (std::vector<std::string>{"a/deep/er", "b"}));
    EXPECT_EQ(found.bytes, 5U);
    EXPECT_EQ(found.unreadable, 0U);
    EXPECT_EQ(find_files(std::vector<std::string>{folder.at("named")}).files.size(), 1U);
    EXPECT_THROW((void)find_files(std::vector<std::string>{folder.at("missing")}), Failure);
    EXPECT_THROW((void)find_files(std::vector<std::string>{folder.at("a/pipe")}), Failure);
}

TEST(FileHasherTest, HashesComeInOrderAndUnreadableFilesAreEmpty) {
    const Folder folder;
    folder.write("1", "hello\n");
    folder.write("2", std::string(3'000'001, 'x'));  // several blocks, the last one odd
    folder.write("4", "");
    const std::vector<FoundFile> files = {{folder.at("1"), 6},
                                          {folder.at("2"), 3'000'001},
                                          {folder.at("gone"), 1},
                                          {folder.at("4"), 0}};
    FileHasher hasher(files);
    std::vector<std::string> hashes;
    std::optional<HashedFile> result;
    FileHasher::Next next{};
    while ((next = hasher.next(result, std::chrono::seconds(10))) == FileHasher::Next::ready) {
        hashes.push_back(result ? hashToHex(result->hash) : "unreadable");
    }
    EXPECT_EQ(next, FileHasher::Next::finished);
    EXPECT_EQ(hashes, (std::vector<std::string>{"5891b5b522d5df086d0ff0b110fbd9d2",
                                                "a3ccf84896e3e6d1185dee335e2f3226", "unreadable",
                                                "e3b0c44298fc1c149afbf4c8996fb924"}));
    EXPECT_EQ(hasher.bytes_done(), 3'000'007U);
}

TEST(FileHasherTest, CanBeAbandonedInTheMiddle) {
    const std::vector<FoundFile> endless = {{"/dev/zero", 0}, {"/dev/zero", 0}, {"/dev/zero", 0}};
    FileHasher hasher(endless);
    std::optional<HashedFile> result;
    EXPECT_EQ(hasher.next(result, std::chrono::milliseconds(1)), FileHasher::Next::not_yet);
}

}  // namespace
}  // namespace vorrim::cli
