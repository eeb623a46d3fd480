// Three clients that send anything, in pieces of any length, leave in every way, do not read, and
// can be called back or not. The input is a row of steps: what happens, to whom, with which bytes.

#include "fuzz/World.h"

using namespace vorrim;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::Quiet quiet;
    fuzz::Input input(data, size);
    fuzz::World world;
    std::array lines{world.arrive(0x0100000A), world.arrive(0x0200000A), world.arrive(0x0100000A)};
    world.turn();

    const fuzz::World::Step steps[] = {
        [&](Line*& line) { line->bring(input.counted()); },
        [&](Line*& line) { line->end(); },
        [&](Line*& line) { line->fail(); },
        [&](Line*& line) { line->room = 0; },
        [&](Line*& line) { line->listen(SIZE_MAX); },
        [&](Line*&) { world.clock.advance(std::chrono::seconds(input.u8())); },
        [&](Line*&) { world.net.reach = static_cast<MemoryNet::Reach>(input.u8() % 4); },
        [&](Line*&) { world.turn(); },
        [&](Line*& line) {
            if (line->closed) line = world.arrive(0x0200000AU);
        },
    };
    world.play(input, lines, steps, 16);
    return 0;
}
