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

    // Whether the test may connect now. If not, it waits: it is posted when it may. Raises
    // std::bad_alloc, and the test has not entered then.
    [[nodiscard]] bool enter(ReachabilityTest& test, std::uint32_t address);
    // Whether a test that waited has come to its turn.
    [[nodiscard]] bool has_entered(const ReachabilityTest& test) const;
    // The end of a test, whether it had its turn or still waits. A test that never entered may
    // leave too. Needs no memory.
    void leave(const ReachabilityTest& test) noexcept;

private:
    struct Visitor {
        ReachabilityTest* test;
        std::uint32_t address;
        bool inside = false;  // or it waits
    };
    using Visitors = std::list<Visitor>;
    // The tests towards one address.
    struct Crowd {
        std::uint32_t altogether = 0;
        std::uint32_t inside = 0;
    };

    // Of a crowd that is known.
    [[nodiscard]] bool has_room(std::uint32_t address) const REQUIRES(lock_);
    void let_in(Visitors& from, Visitors::iterator visitor) noexcept REQUIRES(lock_);
    void admit_next() noexcept REQUIRES(lock_);

    std::uint32_t altogether_ = 0;
    std::uint32_t per_address_ = 0;
    mutable kx_critical_section lock_;
    // Everyone who is in, and everyone who waits, in order.
    Visitors inside_ GUARDED_BY(lock_);
    Visitors waiting_ GUARDED_BY(lock_);
    std::unordered_map<const ReachabilityTest*, Visitors::iterator> places_ GUARDED_BY(lock_);
    std::unordered_map<std::uint32_t, Crowd> crowds_ GUARDED_BY(lock_);
};

}  // namespace vorrim
