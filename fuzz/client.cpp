// Three clients that send anything, in pieces of any length, leave in every way, do not read, and
// can be called back or not. The input is a row of steps: what happens, to whom, with which bytes.

#include "fuzz/World.h"

using namespace vorrim;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::Quiet quiet;
    constexpr std::size_t kClients = 3;
    fuzz::Input input(data, size);
    fuzz::World world;
    std::array<std::size_t, kClients> lines{};
    for (std::size_t i = 0; i < kClients; ++i)
        lines[i] = world.arrive(0x0100000AU + (static_cast<std::uint32_t>(i % 2) << 24U));
    world.turn();

    while (!input.empty()) {
        const std::uint8_t step = input.u8();
        std::size_t& line = lines[step % kClients];
        switch (step / kClients % 16) {
            case 0:
                world.net.bring(line, input.counted());
                break;
            case 1:
                world.net.end(line);
                break;
            case 2:
                world.net.fail(line);
                break;
            case 3:
                world.net.line(line).deaf = true;
                break;
            case 4:
                world.net.listen_again(line);
                break;
            case 5:
                world.clock.advance(std::chrono::seconds(input.u8()));
                break;
            case 6:
                world.net.reach = static_cast<fuzz::MemoryNet::Reach>(input.u8() % 4);
                break;
            case 7:
                world.turn();
                break;
            case 8:
                if (world.net.line(line).closed) line = world.arrive(0x0200000AU);
                break;
            default: {
                const auto payload = input.counted();
                if (!payload.empty()) world.net.bring(line, fuzz::framed(payload));
                world.turn();
            }
        }
    }
    world.settle();
    world.everybody_leaves();
    return 0;
}
