#pragma once
// Splits a text into tokens, from a position, without changing it.
//
//     for (std::int32_t at = kx_strtok(text, spaces, 0, token); at != 0;
//          at = kx_strtok(text, spaces, at, token)) ...
//
// Threads: any.

#include <array>
#include <cstdint>
#include <limits>
#include <span>
#include <string_view>

namespace vorrim {

// A set of bytes, asked in one step. Made once where many texts are split at the same delimiters.
class kx_char_set final {
public:
    constexpr explicit kx_char_set(std::string_view members) noexcept {
        for (const char c : members)
            has_[static_cast<unsigned char>(c)] = true;
    }
    [[nodiscard]] constexpr bool contains(char c) const noexcept {
        return has_[static_cast<unsigned char>(c)];
    }

private:
    std::array<bool, 256> has_{};
};

// Where to go on after the last token; a call with it returns 0.
inline constexpr std::int32_t kx_strtok_end = -1;

// Gives the next token, of at most `limit` bytes, as a part of `text`. Returns where to go on: the
// delimiter that ended the token, the byte that was too much, or kx_strtok_end when the token ran
// to the end of the text. Returns 0 when there is no further token: a negative position, or nothing
// but delimiters from there on; the token is empty then. No text at all at the position is an empty
// token and kx_strtok_end.
[[nodiscard]] std::int32_t kx_strtok(
    std::string_view text, const kx_char_set& delimiters, std::int32_t start,
    std::string_view& token, std::size_t limit = std::numeric_limits<std::size_t>::max()) noexcept;

// The same into the caller's buffer, with a terminating NUL; the token is cut to the room before
// it.
[[nodiscard]] std::int32_t kx_strtok(std::string_view text, std::string_view delimiters,
                                     std::int32_t start, std::span<char> buffer) noexcept;

}  // namespace vorrim
