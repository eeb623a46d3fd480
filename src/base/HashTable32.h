#pragma once
// A table from 32-bit keys to lists of values. The bucket of a key is its remainder.

#include <cstdint>
#include <functional>

#include "base/kx_hash_table.h"

namespace vorrim {

template <class Value>
using HashTable32 = kx_hash_table<std::uint32_t, Value, std::identity>;

}  // namespace vorrim
