#pragma once
// The one reader and the one writer of bytes.
//
//     integer   little-endian, unaligned, least significant byte first
//     text      [ count u16 | that many bytes ]; no terminator; the count 0xFFFF is not a length
//
// Each operation exists for any stream and for a stream over memory; the second costs one test of
// the bounds. Both behave alike.
//
// Errors: reading raises kx_err when the bytes are not there ("read_8 error", "read_16 error",
// "read_32 error", "readAll error") and for the count 0xFFFF ("read string error"); what was there
// has been consumed then. write_string raises "write string error" when the stream takes less than
// all of it; the other writers leave that to whoever asks the stream for its position.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "base/file/kx_file.h"
#include "base/file/kx_memory_file.h"
#include "base/string/kx_string.h"

namespace vorrim {

// No text this long or longer can be written or read.
inline constexpr std::uint16_t kNoTextLength = 0xFFFF;
// As much of a text as can be written.
[[nodiscard]] constexpr std::string_view writable_part(std::string_view text) noexcept {
    return text.substr(0, kNoTextLength - 1);
}

[[nodiscard]] std::uint8_t read_8(kx_file& from);
[[nodiscard]] std::uint16_t read_16(kx_file& from);
[[nodiscard]] std::uint32_t read_32(kx_file& from);
// Exactly `count` bytes.
void readAll(kx_file& from, void* buffer, std::uint32_t count);
// Consumes all bytes of the text and keeps those before its first NUL. Never null.
[[nodiscard]] kx_string read_string(kx_file& from);

void write_8(kx_file& to, std::uint8_t value);
void write_16(kx_file& to, std::uint16_t value);
void write_32(kx_file& to, std::uint32_t value);
void write_bytes(kx_file& to, std::span<const std::byte> bytes);
// Also raises for a text of 0xFFFF bytes or more, which has no form.
void write_string(std::string_view text, kx_file& to);
// Null is written as the empty text.
void write_string(const kx_string& text, kx_file& to);

// Values in bytes that lie in memory; the caller knows the bytes to be there.
[[nodiscard]] constexpr std::uint8_t load_8(const std::byte* from) noexcept {
    return std::to_integer<std::uint8_t>(from[0]);
}
[[nodiscard]] constexpr std::uint16_t load_16(const std::byte* from) noexcept {
    return static_cast<std::uint16_t>(load_8(from) | load_8(from + 1) << 8U);
}
[[nodiscard]] constexpr std::uint32_t load_32(const std::byte* from) noexcept {
    return load_16(from) | std::uint32_t{load_16(from + 2)} << 16U;
}
constexpr void store_8(std::byte* to, std::uint8_t value) noexcept {
    to[0] = std::byte{value};
}
constexpr void store_16(std::byte* to, std::uint16_t value) noexcept {
    store_8(to, static_cast<std::uint8_t>(value & 0xFFU));
    store_8(to + 1, static_cast<std::uint8_t>(value >> 8U));
}
constexpr void store_32(std::byte* to, std::uint32_t value) noexcept {
    store_16(to, static_cast<std::uint16_t>(value & 0xFFFFU));
    store_16(to + 2, static_cast<std::uint16_t>(value >> 16U));
}
// The bytes as a text that ends at its first NUL.
[[nodiscard]] inline std::string_view text_of(std::span<const std::byte> bytes) noexcept {
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return text.substr(0, text.find('\0'));
}

// For streams over memory.
[[nodiscard]] inline std::uint8_t read_8(kx_memory_file& from) {
    if (from.remaining() < 1) [[unlikely]]
        from.raise_short("read_8 error");
    return load_8(from.advance(1));
}
[[nodiscard]] inline std::uint16_t read_16(kx_memory_file& from) {
    if (from.remaining() < 2) [[unlikely]]
        from.raise_short("read_16 error");
    return load_16(from.advance(2));
}
[[nodiscard]] inline std::uint32_t read_32(kx_memory_file& from) {
    if (from.remaining() < 4) [[unlikely]]
        from.raise_short("read_32 error");
    return load_32(from.advance(4));
}
inline void readAll(kx_memory_file& from, void* buffer, std::uint32_t count) {
    const std::span<const std::byte> bytes = from.take(count);
    if (count != 0) std::memcpy(buffer, bytes.data(), count);
}
// The bytes of a counted text in place, NULs and all; valid as long as those of `take`.
[[nodiscard]] std::span<const std::byte> take_string(kx_memory_file& from);
[[nodiscard]] kx_string read_string(kx_memory_file& from);

inline void write_8(kx_memory_file& to, std::uint8_t value) {
    if (std::byte* const place = to.extend(1)) [[likely]]
        store_8(place, value);
}
inline void write_16(kx_memory_file& to, std::uint16_t value) {
    if (std::byte* const place = to.extend(2)) [[likely]] {
        store_16(place, value);
    } else {
        write_16(static_cast<kx_file&>(to), value);
    }
}
inline void write_32(kx_memory_file& to, std::uint32_t value) {
    if (std::byte* const place = to.extend(4)) [[likely]] {
        store_32(place, value);
    } else {
        write_32(static_cast<kx_file&>(to), value);
    }
}
inline void write_bytes(kx_memory_file& to, std::span<const std::byte> bytes) {
    const auto count = static_cast<std::uint32_t>(bytes.size());
    if (std::byte* const at = to.extend(count); at != nullptr && count != 0)
        std::memcpy(at, bytes.data(), count);
    else
        to.write(bytes.data(), count);
}
void write_string(std::string_view text, kx_memory_file& to);

}  // namespace vorrim
