#include "net/ReachabilityTest.h"

#include <utility>

#include "net/PoolShare.h"
#include "net/socketPool.h"

namespace vorrim {

void ReachabilityTest::start(socketPool& pool, std::uint32_t address, std::uint16_t port,
                             std::chrono::milliseconds limit, Slot& slot, Done done) {
    auto socket = pool.net().connect(kx_ip_address(address, port), SocketType::stream,
                                     ConnectMode::non_blocking);
    if (!socket) {
        done(false);
        return;
    }
    auto test = std::make_unique<ReachabilityTest>(std::move(socket), pool, slot, std::move(done));
    slot = test.get();
    PoolShare::current()->add(std::move(test));
    slot->setDeadline(pool.clock().now() + limit);
}

ReachabilityTest::ReachabilityTest(std::unique_ptr<kx_net_socket> socket, socketPool& pool,
                                   Slot& slot, Done done)
    : Task(std::move(socket), pool), slot_(&slot), done_(std::move(done)) {}

ReachabilityTest::~ReachabilityTest() {
    if (slot_ != nullptr) *slot_ = nullptr;
}

std::uint32_t ReachabilityTest::interest() const noexcept {
    return kWritable;
}

void ReachabilityTest::abandon() {
    *std::exchange(slot_, nullptr) = nullptr;
    done_ = nullptr;
    close();
}

Turn ReachabilityTest::doTask(socketPool& /*pool*/) {
    if (closing()) return report(false);
    // A refused connect shows as writable too, so the outcome has to be asked for.
    if ((flags_ & (kWritable | kException | kPeerEnded)) != 0) return report(socket()->connected());
    return Turn::wait;
}

Turn ReachabilityTest::onDeadline() {
    return report(false);
}

Turn ReachabilityTest::report(bool reachable) {
    if (slot_ != nullptr) *std::exchange(slot_, nullptr) = nullptr;
    if (const Done done = std::exchange(done_, nullptr)) done(reachable);
    return Turn::finished;
}

}  // namespace vorrim
