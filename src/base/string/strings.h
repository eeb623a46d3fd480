#pragma once
// Texts as bytes: no locale, no multi-byte characters; only the ASCII letters have two cases.
//
// Where null and empty differ, a text is a pointer to a NUL-terminated one; elsewhere it is a view,
// which is taken to hold no NUL byte. Positions are in bytes from the start.
//
// Threads: any. Nothing here raises except kx_strdup ("out of memory").

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "base/memory/malloc4.h"

namespace vorrim {

// What the searches return when they find nothing.
inline constexpr std::size_t kx_npos = std::string_view::npos;

inline constexpr std::string_view kHexadecimalDigits = "0123456789abcdef";

[[nodiscard]] constexpr char kx_to_lower(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}
[[nodiscard]] constexpr char kx_to_upper(char c) noexcept {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c;
}

// A copy that is freed by itself; null gives null.
[[nodiscard]] std::unique_ptr<char, kx_free_deleter> kx_strdup(const char* text);
// Null has length 0.
[[nodiscard]] std::size_t kx_strlen(const char* text) noexcept;

// Negative, 0 or positive. Bytes compare as signed, a prefix comes first, null before everything.
[[nodiscard]] int kx_strcmp(const char* a, const char* b) noexcept;
[[nodiscard]] int kx_strcmp(std::string_view a, std::string_view b) noexcept;
// The same with both folded to upper case.
[[nodiscard]] int kx_stricmp(const char* a, const char* b) noexcept;
[[nodiscard]] int kx_stricmp(std::string_view a, std::string_view b) noexcept;
// The same over `count` bytes, NULs and all; exactly -1, 0 or 1.
[[nodiscard]] int kx_memcmp(const void* a, const void* b, std::size_t count) noexcept;
[[nodiscard]] int kx_memicmp(const void* a, const void* b, std::size_t count) noexcept;

// To lower case in place.
void kx_strlwr(std::span<char> text) noexcept;

// An optional '-', then decimal digits up to the first that is none; no digit is 0. A number too
// large keeps its low 32 bits.
[[nodiscard]] std::int32_t kx_atoi(std::string_view text) noexcept;

// The text without the characters of `blanks` at both ends.
[[nodiscard]] constexpr std::string_view trimmed(std::string_view text,
                                                 std::string_view blanks) noexcept {
    const std::size_t begin = text.find_first_not_of(blanks);
    if (begin == kx_npos) return {};
    return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

// Copies what fits and always terminates, unless `to` has no room at all.
void kx_strncpy(std::span<char> to, std::string_view from) noexcept;

// Where `needle` first occurs in `hay` in any case, or kx_npos. An empty hay holds nothing, not
// even the empty needle, which any other hay holds at 0.
[[nodiscard]] std::size_t stristr(std::string_view hay, std::string_view needle) noexcept;

// Where `needle` first occurs in `hay` folded to lower case, or kx_npos. The needle is not folded:
// one with a capital letter occurs nowhere. The empty needle occurs at 0 of any hay.
[[nodiscard]] std::size_t kx_strstr_lower(std::string_view hay, std::string_view needle) noexcept;

}  // namespace vorrim
