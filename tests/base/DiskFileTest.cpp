#include <algorithm>
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

TEST_F(DiskFile, IsEmptiedWhenCreatedWhateverItIsOpenedFor) {
    for (const std::uint32_t access : {0U, KX_FILE_READ, KX_FILE_WRITE}) {
        put("file", "old");
        const auto file = kx_open_file(path("file"), access | KX_FILE_CREATE);
        ASSERT_NE(file, nullptr);
        EXPECT_EQ(file->size(), 0u);
        EXPECT_EQ(get("file"), "");
    }
}

TEST_F(DiskFile, IsReadAndWrittenInAnyPiecesAsATextIs) {
    Random random(20240611);
    std::string text(20000, '\0');
    for (char& c : text)
        c = static_cast<char>(random.next_u64());
    put("file", text);
    auto file = kx_open_file(path("file"), KX_FILE_READ | KX_FILE_WRITE);
    std::uint32_t at = 0;
    for (int i = 0; i < 1000; ++i) {
        if (random.below(4) == 0)
            at = file->seek(static_cast<std::uint32_t>(random.below(text.size() + 100)));
        std::string piece(1 + random.below(random.below(5) == 0 ? 9000 : 20), '\0');
        const auto size = static_cast<std::uint32_t>(piece.size());
        if (random.below(8) == 0) {
            piece.assign(piece.size(), static_cast<char>(i));
            ASSERT_EQ(file->write(piece.data(), size), static_cast<std::int32_t>(size));
            text.resize(std::max(text.size(), std::size_t{at} + size));
            text.replace(at, size, piece);
            at += size;
        } else {
            const std::string expected = at < text.size() ? text.substr(at, size) : "";
            ASSERT_EQ(static_cast<std::size_t>(file->read(piece.data(), size)), expected.size());
            ASSERT_EQ(piece.substr(0, expected.size()), expected);
            at += static_cast<std::uint32_t>(expected.size());
        }
        ASSERT_EQ(file->tell(), at);
        ASSERT_EQ(file->size(), text.size());
    }
    file->flush();
    EXPECT_EQ(get("file"), text);
}

TEST_F(DiskFile, IsNotReadWhenItWasOpenedForWriting) {
    put("file", "old");
    char byte = 0;
    EXPECT_EQ(kx_open_file(path("file"), KX_FILE_WRITE)->read(&byte, 1), 0);
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
