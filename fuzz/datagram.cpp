// Datagrams of every length at the datagram door, with a client and its files behind it. Nothing
// that a datagram says may change who is there.

#include "client/ExClientDoor.h"
#include "fuzz/World.h"
#include "tests/WireForms.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vorrim;
    const fuzz::Quiet quiet;
    fuzz::Input input(data, size);
    fuzz::World world;
    Line& guest = *world.arrive(0x0100000A);
    wire::Record song{{}, 0, 0, {wire::text_tag(wire::kName, "b")}};
    std::ranges::copy(std::string_view("fedcba9876543210"), song.hash.bytes.begin());
    for (const wire::Bytes& payload :
         {wire::login(wire::client_record(wire::hash_of(1), "a")), wire::offer({song})})
        guest.bring(frame_of(test::span_of(payload)));
    UDPDoor::open(std::make_unique<ExClientDoor>(world.pool, std::uint16_t{4665}, world.service),
                  world.pool, 0);
    Line& line = world.net.newest();
    line.address = 0x0700000A;
    world.settle();
    fuzz::must(world.clients.count() == 1 && world.files.source_total() == 1);

    while (!input.empty()) {
        line.bring(input.counted());
        world.turn();
        line.arrived.clear();
    }
    world.settle();
    fuzz::must(world.clients.count() == 1 && world.files.source_total() == 1);
    world.everybody_leaves();
    return 0;
}
