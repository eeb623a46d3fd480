#pragma once
// Letters as a search sees them: A to Z as a to z, every other byte as it is; and which bytes stand
// between words.
#include <array>
#include <cstddef>
#include <cstdint>

#include "client/index/keyword_hash.h"

namespace vorrim {

inline constexpr std::array<std::uint8_t, 256> kFoldedBytes = [] {
    std::array<std::uint8_t, 256> folded{};
    for (std::size_t byte = 0; byte < folded.size(); ++byte)
        folded[byte] = static_cast<std::uint8_t>(byte >= 'A' && byte <= 'Z' ? byte | 0x20 : byte);
    return folded;
}();

[[nodiscard]] constexpr std::uint8_t folded_byte(char byte) noexcept {
    return kFoldedBytes[static_cast<unsigned char>(byte)];
}

inline constexpr std::array<bool, 256> kSeparatesWords = [] {
    std::array<bool, 256> separators{};
    for (const char byte : kWordSeparators)
        separators[static_cast<unsigned char>(byte)] = true;
    return separators;
}();

[[nodiscard]] constexpr bool separates_words(char byte) noexcept {
    return kSeparatesWords[static_cast<unsigned char>(byte)];
}

}  // namespace vorrim
