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

    Bytes& u8(std::uint32_t value);
    Bytes& u16(std::uint32_t value);
    Bytes& u32(std::uint32_t value);
    Bytes& raw(std::string_view bytes);  // as they stand, no count
    Bytes& add(const Bytes& more);       // as they stand, no count
    Bytes& fill(std::size_t count, std::uint8_t value);
    Bytes& text(std::string_view text);  // u16 count, then the bytes

    [[nodiscard]] std::size_t size() const noexcept { return bytes_.size(); }
    [[nodiscard]] const std::uint8_t* data() const noexcept { return bytes_.data(); }
    [[nodiscard]] std::uint8_t operator[](std::size_t at) const { return bytes_.at(at); }
    [[nodiscard]] Bytes first(std::size_t count) const;
    [[nodiscard]] Bytes from(std::size_t offset) const;

    bool operator==(const Bytes&) const = default;

private:
    std::vector<std::uint8_t> bytes_;
};

// Pairs of hexadecimal digits; blanks are ignored.
[[nodiscard]] Bytes hex(std::string_view digits);

// How a failing comparison shows them.
void PrintTo(const Bytes& bytes, std::ostream* out);

}  // namespace vorrim::wire
