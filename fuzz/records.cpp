// A published list: what is accepted must read the same again from its own bytes.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "meta/FrozenRecord.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vorrim;
    kx_memory_file stream = kx_memory_file::reading(std::as_bytes(std::span(data, size)));
    auto records = read_frozen_list(stream);
    if (!records) return 0;
    for (FrozenRecord& record : *records) {
        record.set_availability(7);
        kx_memory_file own = kx_memory_file::reading(record.bytes());
        const FrozenRecord again = FrozenRecord::from_network(own);
        if (again.empty() || !std::ranges::equal(again.bytes(), record.bytes())) std::abort();
        if (again.view().int_tag("\x15") != 7) std::abort();
    }
    return 0;
}
