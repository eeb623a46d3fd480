// The administration door: two administrators who send anything, the right password among it, while
// a client is there. The input is a row of steps as for the clients.

#include "app/ServerConsole.h"
#include "fuzz/World.h"
#include "net/Controller.h"
#include "net/LoginThrottle.h"

namespace {

using namespace vorrim;

class NoOperator final : public ConsoleInput {
public:
    Event readLine(std::string_view, std::size_t, std::string&) override { return Event::stopped; }
    Event wait() override { return Event::stopped; }
    void wake() noexcept override {}
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::Quiet quiet;
    fuzz::Input input(data, size);
    fuzz::World world;
    NoOperator nobody;
    ServerConsole console(
        nobody, world.settings, world.service, world.directory, [] {}, world.random);
    console.setRemoteCredentials("a", "b");
    LoginThrottle throttle(world.clock);
    const auto connect = [&] {
        auto [socket, number] = world.net.arrival(0x0100000A);
        world.pool.add(
            std::make_unique<Controller>(std::move(socket), world.pool, console, throttle));
        return number;
    };
    static_cast<void>(world.arrive(0x0200000A));
    std::array<std::size_t, 2> lines{connect(), connect()};

    while (!input.empty()) {
        const std::uint8_t step = input.u8();
        std::size_t& line = lines[step % 2];
        switch (step / 2 % 8) {
            case 0:
                world.net.bring(line, input.counted());
                break;
            case 1:
                world.net.end(line);
                break;
            case 2:
                world.clock.advance(std::chrono::seconds(input.u8()));
                break;
            case 3:
                if (world.net.line(line).closed) line = connect();
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
