#pragma once
// Can a peer be called back? A non-blocking connect with a deadline, watched like any socket.
//
// Only so many tests are under way at a time (net/Limits.h). The others wait, and that is part of
// the time they have. Ports and networks that the operator has forbidden count as unreachable.
//
// The test reports exactly once, on its own worker, unless it was abandoned before.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

#include "net/Task.h"

namespace vorrim {

class ReachabilityTest final : public Task {
public:
    using Done = std::function<void(bool reachable)>;

    // Where the one who waits keeps its test: null as soon as the test is over or gone.
    using Slot = ReachabilityTest*;

    // Starts a test on the calling worker's share. `address` is in identifier form. The slot must
    // live until the test has reported or was abandoned. When no connect can even be started,
    // `done(false)` is called at once.
    static void start(socketPool& pool, std::uint32_t address, std::uint16_t port,
                      std::chrono::milliseconds limit, Slot& slot, Done done);

    ReachabilityTest(const kx_ip_address& address, socketPool& pool, Slot& slot, Done done);
    ~ReachabilityTest() override;

    // The one who waits is leaving: report to nobody and end. Own worker only.
    void abandon();

    [[nodiscard]] Turn doTask(socketPool& pool) override;
    [[nodiscard]] Turn onDeadline() override;

private:
    [[nodiscard]] std::uint32_t interest() const noexcept override;
    [[nodiscard]] bool limited() const noexcept;
    [[nodiscard]] bool connect();
    Turn report(bool reachable);

    const kx_ip_address address_;

    Slot* slot_;
    Done done_;
};

}  // namespace vorrim
