// What the hashes of files are.

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "FileHasher.h"

namespace vorrim::cli {
namespace {

namespace fs = std::filesystem;

TEST(FileHasherTest, HashesComeInOrderAndUnreadableFilesAreEmpty) {
    std::string pattern = (fs::temp_directory_path() / "vorrim-cli-XXXXXX").string();
    const fs::path folder = ::mkdtemp(pattern.data());
    std::ofstream(folder / "1") << "hello\n";
    std::ofstream(folder / "2") << std::string(3'000'001, 'x');  // blocks, the last one odd
    std::ofstream(folder / "4");
    const std::vector<FoundFile> files = {
        {folder / "1", 6}, {folder / "2", 3'000'001}, {folder / "gone", 1}, {folder / "4", 0}};
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
    fs::remove_all(folder);
}

}  // namespace
}  // namespace vorrim::cli
