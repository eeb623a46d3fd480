#pragma once
// Bytes as they stand on the wire, built by hand.
//
//     Bytes().u8(0x1C).u32(7)            ->  1C 07 00 00 00
//     hex("E3 02 00 00 00 3F 00")        ->  the same bytes, for a test that quotes them
//
// The wire tests share no code with the server: what is little-endian here is so because this file
// says it, and a mistake made in one of the two shows up as a difference.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace vorrim::wire {

// A test cannot go on: thrown with a sentence, reported by the test framework as a failure.
class WireFailure final : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Bytes final {
public:
    Bytes() = default;
    explicit Bytes(std::span<const std::uint8_t> bytes) : bytes_(bytes.begin(), bytes.end()) {}

    Bytes& u8(std::uint32_t value) { return fill(1, static_cast<std::uint8_t>(value & 0xFF)); }
    Bytes& u16(std::uint32_t value) { return u8(value).u8(value >> 8); }
    Bytes& u32(std::uint32_t value) { return u16(value).u16(value >> 16); }
    Bytes& fill(std::size_t count, std::uint8_t value) {
        bytes_.insert(bytes_.end(), count, value);
        return *this;
    }
    // As they stand, no count.
    Bytes& raw(std::string_view bytes) {
        bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
        return *this;
    }
    Bytes& add(const Bytes& more) {
        bytes_.insert(bytes_.end(), more.bytes_.begin(), more.bytes_.end());
        return *this;
    }
    // u16 count, then the bytes.
    Bytes& text(std::string_view text) {
        return u16(static_cast<std::uint32_t>(text.size())).raw(text);
    }

    [[nodiscard]] std::size_t size() const noexcept { return bytes_.size(); }
    [[nodiscard]] const std::uint8_t* data() const noexcept { return bytes_.data(); }
    [[nodiscard]] std::uint8_t operator[](std::size_t at) const { return bytes_.at(at); }
    [[nodiscard]] Bytes first(std::size_t count) const {
        return Bytes(std::span(bytes_).first(std::min(count, size())));
    }
    [[nodiscard]] Bytes from(std::size_t offset) const {
        return Bytes(std::span(bytes_).subspan(std::min(offset, size())));
    }
    [[nodiscard]] std::string string() const { return {bytes_.begin(), bytes_.end()}; }

    bool operator==(const Bytes&) const = default;

private:
    std::vector<std::uint8_t> bytes_;
};

// Pairs of hexadecimal digits; blanks are ignored.
[[nodiscard]] inline Bytes hex(std::string_view digits) {
    Bytes bytes;
    std::string pair;
    for (const char c : digits) {
        if (c == ' ') continue;
        pair += c;
        if (pair.size() < 2) continue;
        bytes.u8(static_cast<std::uint32_t>(std::stoul(pair, nullptr, 16)));
        pair.clear();
    }
    return bytes;
}

// How a failing comparison shows them.
inline void PrintTo(const Bytes& bytes, std::ostream* out) {
    constexpr std::size_t kShown = 600;
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    *out << bytes.size() << " bytes:";
    for (std::size_t i = 0; i < std::min(bytes.size(), kShown); ++i)
        *out << ' ' << kDigits[bytes[i] >> 4U] << kDigits[bytes[i] & 0xFU];
}

}  // namespace vorrim::wire
