#pragma once
// The keyed hash functions of the tables. Clients choose hashes, words and names; without the key,
// which is drawn at start and never leaves the process, they cannot choose collisions.
#include <cstdint>

#include "meta/FileHash.h"

namespace vorrim {

class KeyedHash {
public:
    // A key from the system's source of randomness.
    KeyedHash();
    constexpr KeyedHash(std::uint64_t key0, std::uint64_t key1) noexcept
        : key0_(key0), key1_(key1) {}

    // SipHash-1-3 of the 16 bytes.
    [[nodiscard]] std::uint64_t of(const FileHash& hash) const noexcept;

    // Multiply-shift of 32 bits: two different keys meet with probability 2^-32 over the keys.
    [[nodiscard]] std::uint32_t of(std::uint32_t value) const noexcept {
        return static_cast<std::uint32_t>((value * (key0_ | 1) + key1_) >> 32);
    }

private:
    std::uint64_t key0_;
    std::uint64_t key1_;
};

// What a table knows a hash by.
[[nodiscard]] inline std::uint32_t digest_of(const KeyedHash& key, const FileHash& hash) noexcept {
    return static_cast<std::uint32_t>(key.of(hash) >> 32);
}

}  // namespace vorrim
