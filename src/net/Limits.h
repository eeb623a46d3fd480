#pragma once
// What the network floor asks of peers, beyond what an ordinary one ever does. One object for a
// whole server; without one, nothing is limited.
//
// Exempt networks are never limited.
//
// Threads: the values are set before the workers start; the parts have locks of their own.

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "net/AddressGate.h"
#include "net/DatagramLimiter.h"
#include "net/LimitLog.h"
#include "net/NetworkList.h"
#include "net/ReachabilityGate.h"
#include "net/RequestBuckets.h"

namespace vorrim {

// The longest payload of somebody who has not logged in.
inline constexpr std::uint32_t kMaxPayloadOfStrangers = 16U * 1024;

struct Limits {
    using Seconds = std::chrono::seconds;

    NetworkList exempt;
    bool strangers = false;  // kMaxPayloadOfStrangers holds

    // 0: never.
    Seconds first_packet{0};  // a connection without a complete packet is closed
    Seconds packet{0};        // one that takes longer for a packet is closed
    Seconds stalled_send{0};  // one that reads nothing of what waits for it is closed
    Seconds flood{0};         // one that has been slowed down all that time is closed

    RequestRates request_rates{};
    // Administrators' connections, logged in or not, that are not exempt.
    std::atomic<std::int32_t> strange_administrators{0};
    AddressGate addresses;
    ReachabilityGate reachability;
    DatagramLimiter datagrams;

    // What the operator forbids reachability tests, whoever is exempt: ports below, and networks.
    std::uint16_t reach_lowest_port = 0;
    NetworkList unreachable;
    // Whether a test may try this address, in identifier form.
    [[nodiscard]] bool may_reach(std::uint32_t address, std::uint16_t port) const noexcept {
        return port >= reach_lowest_port && !unreachable.contains(address);
    }

    LimitLog log;
};

}  // namespace vorrim
