// Streams over memory and the primitives on top of them.

#include <array>
#include <functional>
#include <gtest/gtest.h>
#include <string>

#include "base/file/kx_memory_file.h"
#include "base/file/primitives.h"
#include "base/kx_err.h"

namespace vorrim {
namespace {

std::span<const std::byte> bytes_of(std::string_view text) {
    return std::as_bytes(std::span(text));
}

std::string text_in(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// The message of the error that `act` raises, or "" when it raises none.
std::string raised_by(const std::function<void()>& act) {
    try {
        act();
    } catch (const kx_err& error) {
        return error.message();
    }
    return "";
}

TEST(MemoryStream, WithoutGrowthTakesOnlyWhatFits) {
    std::array<std::byte, 4> buffer{};
    kx_memory_file stream{std::span(buffer)};
    EXPECT_EQ(stream.size(), 4u);
    EXPECT_EQ(stream.write("abcdef", 6), 4);
    EXPECT_EQ(text_in(buffer), "abcd");
    EXPECT_EQ(stream.write("g", 1), 0);
    EXPECT_EQ(stream.seek(9), 4u);
    // An integer at the edge leaves the bytes that fit.
    stream.seek(3);
    write_32(stream, 0x64636241);
    EXPECT_EQ(text_in(buffer), "abcA");
    EXPECT_EQ(stream.tell(), 4u);
    // One without a step has no buffer to write to at all.
    kx_memory_file none(0);
    EXPECT_EQ(none.write("a", 1), 0);
}

TEST(MemoryStream, ForReadingCannotBeWritten) {
    const std::string text = "abcdef";
    kx_memory_file stream = kx_memory_file::reading(bytes_of(text));
    EXPECT_EQ(stream.write("x", 1), 0);
    write_32(stream, 1);
    EXPECT_EQ(raised_by([&] { write_string("x", stream); }), "write string error");
    EXPECT_EQ(stream.map(0, 1, KX_FILE_READ | KX_FILE_WRITE), nullptr);
    stream.clear();
    EXPECT_EQ(stream.seek(3), 3u);
    EXPECT_EQ(text, "abcdef");
}

TEST(MemoryStream, SeekingPastTheEndLeavesZerosNotOldMemory) {
    kx_memory_file stream(16);
    stream.write("secretsecret", 12);
    stream.clear();
    EXPECT_EQ(stream.seek(20), 20u);
    EXPECT_EQ(stream.capacity(), 32u);
    EXPECT_EQ(text_in(stream.contents()), std::string(20, '\0'));
    // Going back keeps the size.
    EXPECT_EQ(stream.seek(2), 2u);
    EXPECT_EQ(stream.size(), 20u);
}

// A stream that is not one over memory, and gives a byte at a time.
class Trickle final : public kx_file {
public:
    explicit Trickle(std::string text) : text_(std::move(text)) {}
    std::int32_t read(void* buffer, std::uint32_t count) override {
        if (count == 0 || at_ == text_.size()) return at_end;
        *static_cast<char*>(buffer) = text_[at_++];
        return 1;
    }
    std::int32_t write(const void* bytes, std::uint32_t count) override {
        const std::uint32_t taken = std::min(count, room);
        room -= taken;
        text_.append(static_cast<const char*>(bytes), taken);
        return static_cast<std::int32_t>(taken);
    }
    std::uint32_t seek(std::uint32_t) override { return 0; }
    std::uint32_t size() const override { return static_cast<std::uint32_t>(text_.size()); }
    std::uint32_t tell() const override { return static_cast<std::uint32_t>(at_); }

    std::int32_t at_end = 0;
    std::uint32_t room = 1000;

private:
    std::string text_;
    std::size_t at_ = 0;
};

// Runs a check on the same bytes as a stream over memory and as any stream.
template <class Check>
void on_both(std::string_view bytes, Check check) {
    kx_memory_file memory = kx_memory_file::reading(bytes_of(bytes));
    check(memory);
    Trickle trickle{std::string(bytes)};
    check(trickle);
    Trickle socket{std::string(bytes)};
    socket.at_end = -1;
    check(socket);
}

TEST(Primitives, NameTheReadThatWasShortAndConsumeWhatThereWas) {
    const auto expect = [](std::string_view bytes, auto read, const std::string& error) {
        on_both(bytes, [&](auto& s) {
            EXPECT_EQ(raised_by([&] { (void)read(s); }), error);
            EXPECT_EQ(s.tell(), bytes.size());
        });
    };
    const auto text = [](auto& s) { return read_string(s); };
    const auto byte = [](auto& s) { return read_8(s); };
    const auto word = [](auto& s) { return read_16(s); };
    const auto number = [](auto& s) { return read_32(s); };
    expect("", byte, "read_8 error");
    expect("a", word, "read_16 error");
    expect("abc", number, "read_32 error");
    const auto four = [](auto& s) {
        std::array<char, 4> to{};
        readAll(s, to.data(), 4);
        return to;
    };
    expect("abc", four, "readAll error");
    expect("\x01", text, "read_16 error");
    expect("\xFE\xFFzz", text, "readAll error");
    expect("\xFF\xFF", text, "read string error");
}

TEST(Primitives, ReadCountedTexts) {
    using namespace std::string_view_literals;
    on_both(
        "\x03\x00"
        "abc\x00\x00\x05\x00"
        "ab\0cdX"sv,
        [](auto& s) {
            EXPECT_EQ(read_string(s).view(), "abc");
            const kx_string empty = read_string(s);
            EXPECT_FALSE(empty.null());
            EXPECT_EQ(empty.view(), "");
            // The bytes after a NUL are consumed and forgotten.
            EXPECT_EQ(read_string(s).view(), "ab");
            EXPECT_EQ(read_8(s), 'X');
        });
}

TEST(Primitives, WriteNoTextThatHasNoFormOrNoRoom) {
    kx_memory_file memory(1024);
    write_string(std::string(0xFFFE, 'x'), memory);
    EXPECT_EQ(memory.size(), 0xFFFEu + 2);
    EXPECT_EQ(raised_by([&] { write_string(std::string(0xFFFF, 'x'), memory); }),
              "write string error");
    EXPECT_EQ(memory.size(), 0xFFFEu + 2);
    for (const std::uint32_t room : {1u, 4u}) {
        Trickle full("");
        full.room = room;
        EXPECT_EQ(raised_by([&] { write_string("abc", full); }), "write string error");
    }
}

}  // namespace
}  // namespace vorrim
