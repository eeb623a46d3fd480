#include "net/Door.h"

#include <chrono>

#include "base/Output.h"
#include "base/kx_err.h"
#include "net/PoolShare.h"
#include "net/socketPool.h"

namespace vorrim {

namespace {

constexpr int kAcceptsPerTurn = 64;
// How long a door waits for a descriptor to become free.
constexpr std::chrono::milliseconds kExhaustedPause{100};

}  // namespace

Door::Door(socketPool& pool, std::uint16_t port, std::uint32_t bind)
    : Task(nullptr, pool), local_(bind, port) {}

void Door::open(std::unique_ptr<Door> door, socketPool& pool, int proxy_wait_ms) {
    auto socket = pool.net().listen_at(door->local_, proxy_wait_ms, SocketType::stream);
    if (!socket) {
        current_output().printLine(
            "Can't Listen for connections. Please adjust your proxy settings in the options tab.");
        return;
    }
    door->setSocket(std::move(socket));
    pool.add(std::move(door));
}

Turn Door::onDeadline() {
    paused_ = false;
    flags_ |= kReadable;
    return Turn::again;
}

Turn Door::doTask(socketPool& pool) {
    if (closing() || (flags_ & kException) != 0) return Turn::finished;
    if (paused_ || (flags_ & kReadable) == 0) return Turn::wait;
    for (int i = 0; i < kAcceptsPerTurn; ++i) {
        std::unique_ptr<kx_net_socket> accepted;
        switch (socket()->accept(accepted)) {
            case AcceptResult::accepted:
                admit(std::move(accepted), pool);
                break;
            case AcceptResult::retry:
                break;
            case AcceptResult::drained:
                flags_ &= ~static_cast<std::uint32_t>(kReadable);
                return Turn::wait;
            case AcceptResult::exhausted:
            case AcceptResult::failed:
                current_output().printVerbose("Door couldn't accept new socket?\n");
                paused_ = true;
                setDeadline(pool.clock().now() + kExhaustedPause);
                return Turn::wait;
        }
    }
    return Turn::again;
}

void Door::admit(std::unique_ptr<kx_net_socket> socket, socketPool& pool) {
    try {
        if (may_accept()) pool.add(create_connection(std::move(socket), pool));
    } catch (const kx_err&) {
        current_output().printVerbose("*** Exception in Door\n");
    }
}

}  // namespace vorrim
