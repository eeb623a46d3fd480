#include "meta/FileHash.h"

#include "base/string/strings.h"

namespace vorrim {

namespace {

std::optional<unsigned> digit_value(char digit) noexcept {
    if (digit >= '0' && digit <= '9') return static_cast<unsigned>(digit - '0');
    if (digit >= 'a' && digit <= 'f') return static_cast<unsigned>(digit - 'a') + 10U;
    if (digit >= 'A' && digit <= 'F') return static_cast<unsigned>(digit - 'A') + 10U;
    return std::nullopt;
}

}  // namespace

std::string hashToHex(const FileHash& hash) {
    std::string text;
    text.reserve(2 * kHashSize);
    for (const std::byte byte : hash.bytes) {
        const auto value = std::to_integer<std::size_t>(byte);
        text += kHexadecimalDigits[value >> 4];
        text += kHexadecimalDigits[value & 0xFU];
    }
    return text;
}

std::optional<FileHash> hexToHash(std::string_view text) {
    if (text.size() != 2 * kHashSize) return std::nullopt;
    FileHash hash;
    for (std::size_t i = 0; i < kHashSize; ++i) {
        const auto high = digit_value(text[2 * i]);
        const auto low = digit_value(text[2 * i + 1]);
        if (!high || !low) return std::nullopt;
        hash.bytes[i] = static_cast<std::byte>(*high << 4 | *low);
    }
    return hash;
}

}  // namespace vorrim
