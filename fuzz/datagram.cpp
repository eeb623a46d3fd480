// Datagrams of every length at the datagram door, with a client and its files behind it. Nothing
// that a datagram says may change who is there.

#include "client/ExClientDoor.h"
#include "fuzz/World.h"

namespace {

using namespace vorrim;

// What a guest brings: a name, and a file.
constexpr char kLogin[] =
    "\x01"
    "0123456789abcdef\0\0\0\0\x36\x12"
    "\x01\0\0\0\x02\x01\0\x01\x01\0a";
constexpr char kOffer[] =
    "\x15\x01\0\0\0"
    "fedcba9876543210\0\0\0\0\0\0"
    "\x01\0\0\0\x02\x01\0\x01\x01\0b";

template <std::size_t Size>
std::vector<std::byte> packet_of(const char (&payload)[Size]) {
    return fuzz::framed(std::as_bytes(std::span(payload)).first(Size - 1));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::Quiet quiet;
    fuzz::Input input(data, size);
    fuzz::World world;
    world.service_settings.min_version = 0;
    const std::size_t guest = world.arrive(0x0100000A);
    world.net.bring(guest, packet_of(kLogin));
    world.net.bring(guest, packet_of(kOffer));
    UDPDoor::open(std::make_unique<ExClientDoor>(world.pool, std::uint16_t{4665}, world.service),
                  world.pool, 0);
    const std::size_t line = world.net.newest();
    world.net.line(line).address = 0x0700000A;
    world.settle();
    fuzz::must(world.clients.count() == 1 && world.files.source_total() == 1);

    while (!input.empty()) {
        world.net.bring(line, input.counted());
        world.turn();
        world.net.line(line).arrived.clear();
    }
    world.settle();
    fuzz::must(world.clients.count() == 1 && world.files.source_total() == 1);
    world.everybody_leaves();
    return 0;
}
