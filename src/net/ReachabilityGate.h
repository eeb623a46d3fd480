#pragma once
// How many reachability tests are under way at a time, altogether and towards one address.
//
//     enter ──► may connect now
//        └────► waits its turn ──► is posted when somebody leaves, first come first served
//
// Threads: any thread. The lock is held while a waiting test is posted; nothing else is locked
// inside it.

#include <cstdint>
#include <list>
#include <unordered_map>

#include "base/Annotations.h"
#include "base/kx_critical_section.h"

namespace vorrim {

class ReachabilityTest;

class ReachabilityGate final {
public:
    // 0: no limit. Before the gate is used.
    void set_limits(std::uint32_t altogether, std::uint32_t per_address) noexcept;

    // Whether the test may connect now. If not, it waits: it is posted when it may.
    [[nodiscard]] bool enter(ReachabilityTest& test, std::uint32_t address);
    // Whether a test that waited has come to its turn.
    [[nodiscard]] bool has_entered(const ReachabilityTest& test) const;
    // The end of a test, whether it had its turn or still waits. A test that never entered may
    // leave too.
    void leave(const ReachabilityTest& test, std::uint32_t address);

private:
    struct Waiter {
        ReachabilityTest* test;
        std::uint32_t address;
    };

    [[nodiscard]] bool has_room(std::uint32_t address) const REQUIRES(lock_);
    void let_in(const ReachabilityTest& test, std::uint32_t address) REQUIRES(lock_);

    std::uint32_t altogether_ = 0;
    std::uint32_t per_address_ = 0;
    mutable kx_critical_section lock_;
    // Everyone who is in, and everyone who waits, in order.
    std::unordered_map<const ReachabilityTest*, std::uint32_t> inside_ GUARDED_BY(lock_);
    std::unordered_map<std::uint32_t, std::uint32_t> tests_of_ GUARDED_BY(lock_);  // per address
    std::list<Waiter> waiting_ GUARDED_BY(lock_);
    std::unordered_map<const ReachabilityTest*, std::list<Waiter>::iterator> places_
        GUARDED_BY(lock_);
};

}  // namespace vorrim
