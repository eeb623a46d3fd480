#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include "base/Random.h"
#include "base/file/kx_disk_file.h"
#include "base/file/primitives.h"
#include "base/kx_err.h"
#include "tests/ScratchFolder.h"

namespace vorrim {
namespace {

namespace fs = std::filesystem;

class DiskFile : public ::testing::Test {
protected:
    std::string path(const std::string& name) const { return (folder_.path() / name).string(); }
    void put(const std::string& name, const std::string& text) const { folder_.write(name, text); }
    std::string get(const std::string& name) const { return folder_.read(name); }
    std::size_t files() const {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(folder_.path()), fs::directory_iterator()));
    }

    const ScratchFolder folder_;
};

TEST_F(DiskFile, WritesFromItsFirstByteAndRaisesItsSize) {
    put("file", "0123456789");
    auto file = kx_open_file(path("file"), KX_FILE_WRITE);
    EXPECT_EQ(file->write("ab", 2), 2);
    EXPECT_EQ(file->size(), 10u);
    EXPECT_EQ(file->seek(9), 9u);
    EXPECT_EQ(file->write("cde", 3), 3);
    EXPECT_EQ(file->size(), 12u);
    EXPECT_EQ(file->tell(), 12u);
    file->flush();
    EXPECT_EQ(get("file"), "ab2345678cde");
    std::byte byte{};
    EXPECT_EQ(file->read(&byte, 1), 0);  // not open for reading
}

TEST_F(DiskFile, IsEmptiedWhenCreatedWhateverItIsOpenedFor) {
    for (const std::uint32_t access : {0U, KX_FILE_READ, KX_FILE_WRITE}) {
        put("file", "old");
        const auto file = kx_open_file(path("file"), access | KX_FILE_CREATE);
        ASSERT_NE(file, nullptr);
        EXPECT_EQ(file->size(), 0u);
        EXPECT_EQ(get("file"), "");
    }
}

TEST_F(DiskFile, ReadsTheSameInAnyPieces) {
    Random random(20240611);
    std::string text(20000, '\0');
    for (char& c : text)
        c = static_cast<char>(random.next_u64());
    put("file", text);
    auto file = kx_open_file(path("file"), KX_FILE_READ);
    std::uint32_t at = 0;
    for (int i = 0; i < 400; ++i) {
        if (random.below(4) == 0) at = file->seek(static_cast<std::uint32_t>(random.below(20100)));
        std::string piece(random.below(random.below(5) == 0 ? 9000 : 20), '\0');
        const auto got = file->read(piece.data(), static_cast<std::uint32_t>(piece.size()));
        const std::string expected = at < text.size() ? text.substr(at, piece.size()) : "";
        ASSERT_EQ(static_cast<std::size_t>(got), expected.size());
        ASSERT_EQ(piece.substr(0, expected.size()), expected);
        at += static_cast<std::uint32_t>(got);
        ASSERT_EQ(file->tell(), at);
    }
}

TEST_F(DiskFile, ReadsBackWhatItHasJustWritten) {
    auto file = kx_open_file(path("file"), KX_FILE_READ | KX_FILE_WRITE);
    write_32(*file, 1);
    file->seek(0);
    EXPECT_EQ(read_16(*file), 1);
    file->seek(0);
    write_16(*file, 0x0202);
    file->seek(0);
    EXPECT_EQ(read_32(*file), 0x0202u);
}

TEST_F(DiskFile, IsReplacedAsAWholeOrNotAtAll) {
    const auto fill = [](kx_file& to) {
        write_string("new", to);
        return true;
    };
    EXPECT_TRUE(replace_file(path("list"), fill));
    EXPECT_EQ(get("list"), std::string("\x03\x00new", 5));
    EXPECT_EQ(files(), 1u);

    EXPECT_FALSE(replace_file(path("list"), [](kx_file& to) {
        write_string("half", to);
        return false;
    }));
    EXPECT_THROW(
        (void)replace_file(path("list"), [](kx_file&) -> bool { kx_error("encoder failed"); }),
        kx_err);
    EXPECT_FALSE(replace_file(path("no/folder"), fill));
    EXPECT_EQ(get("list"), std::string("\x03\x00new", 5));
    // A name that cannot be replaced leaves nothing beside it.
    fs::create_directories(path("folder/inside"));
    EXPECT_FALSE(replace_file(path("folder"), fill));
    EXPECT_EQ(files(), 2u);
}

TEST_F(DiskFile, IsReplacedWhereItsLinkPoints) {
    put("real", "old");
    fs::permissions(path("real"), fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink("real", path("link"));
    EXPECT_TRUE(replace_file(path("link"), [](kx_file& to) { return to.write("new", 3) == 3; }));
    EXPECT_TRUE(fs::is_symlink(path("link")));
    EXPECT_EQ(get("real"), "new");
    EXPECT_EQ(fs::status(path("real")).permissions(),
              fs::perms::owner_read | fs::perms::owner_write);
}

}  // namespace
}  // namespace vorrim
