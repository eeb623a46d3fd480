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
    Event readLine(std::string_view, std::size_t, Wake, std::string&) override {
        return Event::stopped;
    }
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
        auto [socket, line] = world.net.arrival(0x0100000A);
        world.pool.add(
            std::make_unique<Controller>(std::move(socket), world.pool, console, throttle));
        return line;
    };
    static_cast<void>(world.arrive(0x0200000A));
    std::array lines{connect(), connect()};

    const fuzz::World::Step steps[] = {
        [&](Line*& line) { line->bring(input.counted()); },
        [&](Line*& line) { line->end(); },
        [&](Line*&) { world.clock.advance(std::chrono::seconds(input.u8())); },
        [&](Line*& line) {
            if (line->closed) line = connect();
        },
    };
    world.play(input, lines, steps, 8);
    return 0;
}
