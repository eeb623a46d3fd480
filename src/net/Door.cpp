#include "net/Door.h"

#include <chrono>
#include <new>

#include "base/Output.h"
#include "base/kx_err.h"
#include "net/PoolShare.h"
#include "net/socketPool.h"

namespace vorrim {

namespace {

// How long a door waits for a descriptor to become free.
constexpr std::chrono::milliseconds kExhaustedPause{100};

// Leaves the gate again unless a connection has taken that upon itself.
struct Passage {
    AddressGate* gate;
    std::uint32_t address;
    ~Passage() {
        if (gate != nullptr) gate->leave(address);
    }
};

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
    // One a turn: those who are connected do not wait for a crowd that arrives.
    std::unique_ptr<kx_net_socket> accepted;
    switch (socket()->accept(accepted)) {
        case AcceptResult::accepted:
            admit(std::move(accepted), pool);
            return Turn::again;
        case AcceptResult::retry:
            return Turn::again;
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
    return Turn::wait;
}

void Door::admit(std::unique_ptr<kx_net_socket> socket, socketPool& pool) {
    try {
        if (!may_accept()) return;
        const auto address = socket->peer_address();
        const std::uint32_t peer = address ? address->value() : 0;
        if (pool.limits().exempt.contains(peer)) {
            pool.add(create_connection(std::move(socket), pool));
        } else if (may_accept_stranger() && pass_gate(peer)) {
            Passage passage{&pool.limits().addresses, peer};
            std::unique_ptr<Connection> connection = create_connection(std::move(socket), pool);
            connection->hasPassedGate();
            passage.gate = nullptr;
            pool.add(std::move(connection));
        }
    } catch (const kx_err&) {
        current_output().printVerbose("*** Exception in Door\n");
    } catch (const std::bad_alloc&) {
        // No memory for one more: those who are there have what they need.
        current_output().printVerbose("*** Exception in Door\n");
    }
}

bool Door::pass_gate(std::uint32_t peer) {
    Limits& limits = pool().limits();
    switch (limits.addresses.admit(peer, share()->now())) {
        case AddressGate::Answer::welcome:
            return true;
        case AddressGate::Answer::too_many:
            limits.log.count(Limit::address_connections);
            return false;
        case AddressGate::Answer::too_fast:
            limits.log.count(Limit::address_connects);
            return false;
    }
    return false;
}

}  // namespace vorrim
