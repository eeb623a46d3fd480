// Packets out of a stream that splits anywhere, once taken piece by piece and once where they lie:
// both find the same packets. The first byte of the input says how long the pieces are.

#include <vector>

#include "fuzz/Input.h"
#include "meta/Packet.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vorrim;
    using Payload = std::vector<std::byte>;
    fuzz::Input input(data, size);
    const std::size_t piece = 1U + input.u8() % 17U;

    std::vector<Payload> in_place;
    auto whole = input.rest();
    for (;;) {
        const Packet::Frame frame = Packet::frame(whole);
        if (frame.state != Packet::Frame::State::complete) break;
        fuzz::must(kHeaderSize + frame.payload_size <= whole.size());
        const auto payload = whole.subspan(kHeaderSize, frame.payload_size);
        in_place.emplace_back(payload.begin(), payload.end());
        whole = whole.subspan(kHeaderSize + frame.payload_size);
    }

    std::vector<Payload> in_pieces;
    Packet packet;
    while (!input.empty()) {
        auto taken = input.piece(piece);
        while (!taken.empty()) {
            kx_memory_file stream = kx_memory_file::reading(taken);
            std::uint32_t count = 0;
            const Progress progress = packet.receive(stream, count);
            fuzz::must(count <= taken.size());
            if (progress == Progress::failed) {
                fuzz::must(in_pieces == in_place);
                return 0;
            }
            taken = taken.subspan(count);
            if (progress != Progress::done) continue;
            fuzz::must(packet.payload().size() == packet.payload_size());
            in_pieces.emplace_back(packet.payload().begin(), packet.payload().end());
            packet.reset();
        }
    }
    fuzz::must(in_pieces == in_place);
    return 0;
}
