#include "net/ReachabilityTest.h"

#include <utility>

#include "net/PoolShare.h"
#include "net/socketPool.h"

namespace vorrim {

void ReachabilityTest::start(socketPool& pool, std::uint32_t address, std::uint16_t port,
                             std::chrono::milliseconds limit, Slot& slot, Done done) {
    // Whoever listens nowhere says so with port 0; that is ordinary, and nothing to count.
    if (port == 0) {
        done(false);
        return;
    }
    Limits& limits = pool.limits();
    if (!limits.may_reach(address, port)) {
        limits.log.count(Limit::reach_refusals);
        done(false);
        return;
    }
    auto test = std::make_unique<ReachabilityTest>(kx_ip_address(address, port), pool, slot, done);
    const bool enters = !test->limited() || limits.reachability.enter(*test, address);
    if (enters && !test->connect()) {
        test->slot_ = nullptr;
        test.reset();
        done(false);
        return;
    }
    slot = test.get();
    PoolShare::current()->add(std::move(test));
    slot->setDeadline(pool.clock().now() + limit);
}

ReachabilityTest::ReachabilityTest(const kx_ip_address& address, socketPool& pool, Slot& slot,
                                   Done done)
    : Task(nullptr, pool), address_(address), slot_(&slot), done_(std::move(done)) {}

ReachabilityTest::~ReachabilityTest() {
    if (limited()) pool().limits().reachability.leave(*this);
    if (slot_ != nullptr) *slot_ = nullptr;
}

bool ReachabilityTest::limited() const noexcept {
    return !pool().limits().exempt.contains(address_.value());
}

bool ReachabilityTest::connect() {
    setSocket(pool().net().connect(address_, SocketType::stream, ConnectMode::non_blocking));
    return socket() != nullptr;
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
    if (socket() == nullptr) {
        if (!pool().limits().reachability.has_entered(*this)) return Turn::wait;
        return connect() && startWatching() ? Turn::wait : report(false);
    }
    // A refused connect shows as writable too, so the outcome has to be asked for.
    if ((flags_ & (kWritable | kException | kPeerEnded)) != 0) return report(socket()->connected());
    return Turn::wait;
}

Turn ReachabilityTest::onDeadline() {
    if (socket() == nullptr) pool().limits().log.count(Limit::reach_waits);
    return report(false);
}

Turn ReachabilityTest::report(bool reachable) {
    if (slot_ != nullptr) *std::exchange(slot_, nullptr) = nullptr;
    if (const Done done = std::exchange(done_, nullptr)) done(reachable);
    return Turn::finished;
}

}  // namespace vorrim
