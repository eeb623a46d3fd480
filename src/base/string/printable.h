#pragma once
// Texts from outside, made fit for a terminal: a name may hold escape sequences, and a terminal
// would obey them.
//
// Values in, values out; no state, any thread.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vorrim {

inline constexpr std::uint32_t kNotUtf8 = 0xFFFFFFFF;

struct Utf8Character {
    std::uint32_t code;  // kNotUtf8 for a byte that begins no valid sequence
    std::size_t length;  // bytes it takes, at least 1
};

// The character at the start of a text that is not empty.
[[nodiscard]] Utf8Character first_character(std::string_view text);

// The text with every control character, every direction override and every byte that is not UTF-8
// replaced by '?'.
[[nodiscard]] std::string printable(std::string_view text);
// The same, but tabs and newlines stay.
[[nodiscard]] std::string printable_lines(std::string_view text);

}  // namespace vorrim
