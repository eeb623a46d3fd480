#pragma once
// Letters as a search sees them: A to Z as a to z, every other byte as it is.
#include <array>
#include <cstddef>
#include <cstdint>

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

}  // namespace vorrim
