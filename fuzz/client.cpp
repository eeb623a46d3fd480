// Three clients that send anything, in pieces of any length, leave in every way, do not read, and
// can be called back or not. The input is a row of steps: what happens, to whom, with which bytes.

#include "fuzz/World.h"

using namespace vorrim;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::Quiet quiet;
    constexpr std::size_t kClients = 3;
    fuzz::Input input(data, size);
    fuzz::World world;
    std::array<Line*, kClients> lines{};
    for (std::size_t i = 0; i < kClients; ++i)
        lines[i] = world.arrive(0x0100000AU + (static_cast<std::uint32_t>(i % 2) << 24U));
    world.turn();

    Line** line = nullptr;
    const std::function<void()> steps[] = {
        [&] { (*line)->bring(input.counted()); },
        [&] { (*line)->end(); },
        [&] { (*line)->fail(); },
        [&] { (*line)->room = 0; },
        [&] { (*line)->listen(SIZE_MAX); },
        [&] { world.clock.advance(std::chrono::seconds(input.u8())); },
        [&] { world.net.reach = static_cast<MemoryNet::Reach>(input.u8() % 4); },
        [&] { world.turn(); },
        [&] {
            if ((*line)->closed) *line = world.arrive(0x0200000AU);
        },
    };
    while (!input.empty()) {
        const std::size_t step = input.u8();
        line = &lines[step % kClients];
        const std::size_t kind = step / kClients % 16;
        kind < std::size(steps) ? steps[kind]() : world.bring_packet(**line, input);
    }
    world.everybody_leaves();
    return 0;
}
