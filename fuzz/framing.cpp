// Packets out of a stream that splits anywhere: the first byte of the input says where.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "meta/Packet.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vorrim;
    if (size < 2) return 0;
    const std::size_t piece = 1 + data[0] % 17;
    std::span<const std::byte> rest = std::as_bytes(std::span(data + 1, size - 1));
    Packet packet;
    while (!rest.empty()) {
        const auto taken = rest.first(std::min(piece, rest.size()));
        kx_memory_file stream = kx_memory_file::reading(taken);
        std::uint32_t count = 0;
        const Progress progress = packet.receive(stream, count);
        if (count > taken.size()) std::abort();
        if (progress == Progress::failed) return 0;
        rest = rest.subspan(count);
        if (progress != Progress::done) continue;
        if (packet.payload().size() != packet.payload_size()) std::abort();
        packet.reset();
    }
    return 0;
}
