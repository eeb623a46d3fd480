#pragma once
// A table from 16-byte keys to lists of values. The bucket of a key is the remainder of its first
// four bytes, least significant first; keys are equal when all their bytes are.

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/file/primitives.h"
#include "base/kx_hash_table.h"

namespace vorrim {

using HashKey128 = std::array<std::byte, 16>;

struct HashKey128Bucket final {
    [[nodiscard]] std::uint32_t operator()(const HashKey128& key) const noexcept {
        return load_32(key.data());
    }
};

template <class Value>
using HashTable128 = kx_hash_table<HashKey128, Value, HashKey128Bucket>;

}  // namespace vorrim
