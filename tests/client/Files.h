#pragma once
// Files that are a number and a name, for tests of the index.

#include <cstdint>
#include <string_view>

#include "meta/FrozenRecord.h"
#include "tests/search/SearchFixture.h"

namespace vorrim::test {

constexpr std::uint16_t kPort = 4662;

inline FileHash hash_of(std::uint32_t number) {
    FileHash hash;
    store_32(hash.bytes.data(), number);
    return hash;
}

inline FrozenRecord file(std::uint32_t number, std::string_view name) {
    const Record record = Record(hash_of(number)).text("\x01", name);
    kx_memory_file wire = kx_memory_file::reading(RecordView(record).bytes());
    return FrozenRecord::from_network(wire);
}

}  // namespace vorrim::test
