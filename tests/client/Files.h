#pragma once
// Files that are a number and a name, for tests of the index.

#include <cstdint>
#include <string_view>

#include "base/file/primitives.h"
#include "meta/FrozenRecord.h"

namespace vorrim::test {

constexpr std::uint16_t kPort = 4662;

inline FileHash hash_of(std::uint32_t number) {
    FileHash hash;
    store_32(hash.bytes.data(), number);
    return hash;
}

inline FrozenRecord file(std::uint32_t number, std::string_view name) {
    kx_memory_file wire(256);
    write_bytes(wire, hash_of(number).bytes);
    write_32(wire, 0);
    write_16(wire, 0);
    write_32(wire, 1);
    write_8(wire, TagType::text);
    write_string("\x01", wire);
    write_string(name, wire);
    wire.seek(0);
    return FrozenRecord::from_network(wire);
}

}  // namespace vorrim::test
