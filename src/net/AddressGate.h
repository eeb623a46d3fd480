#pragma once
// How many connections an address has, and how fast it makes new ones.
//
// Each address may hold so many at a time, and make so many a minute; a whole minute's worth may
// come at once. An address without connections is forgotten as soon as it could make a minute's
// worth again, at the latest when the table has grown too large. The table is cut into parts, which
// grow and are tidied by themselves: with a million addresses either takes a moment of one part.
//
// Threads: any thread. The lock is a leaf: nothing is locked or printed while it is held.

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <unordered_map>

#include "base/Annotations.h"
#include "base/kx_critical_section.h"

namespace vorrim {

class AddressGate final {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    // Addresses remembered, about, beside those that have a connection.
    static constexpr std::size_t kMostRemembered = 65'536;

    enum class Answer { welcome, too_many, too_fast };

    // 0: no limit. Before the gate is used.
    void set_limits(std::uint32_t at_a_time, std::uint32_t a_minute) noexcept;

    // A new connection from `address`, any form. Who is welcome must leave again.
    [[nodiscard]] Answer admit(std::uint32_t address, TimePoint now);
    void leave(std::uint32_t address);

    [[nodiscard]] std::size_t remembered() const;

private:
    struct Visitor {
        std::uint32_t connections = 0;
        std::uint32_t allowance = 0;     // connections it may make before time must pass
        std::uint32_t allowance_of = 0;  // the moment for which that is so, in milliseconds
    };

    struct Part {
        std::unordered_map<std::uint32_t, Visitor> visitors;
        std::size_t tidy_at = kFirstTidy;
    };

    static constexpr int kPartBits = 8;
    static constexpr std::size_t kFirstTidy = 4;

    Part& part_of(std::uint32_t address) REQUIRES(lock_);
    void refill(Visitor& visitor, std::uint32_t now) const noexcept;
    void forget_idle(Part& part, std::uint32_t now) const REQUIRES(lock_);

    std::uint32_t at_a_time_ = 0;
    std::uint32_t a_minute_ = 0;
    mutable kx_critical_section lock_;
    std::array<Part, std::size_t{1} << kPartBits> parts_ GUARDED_BY(lock_);
};

}  // namespace vorrim
