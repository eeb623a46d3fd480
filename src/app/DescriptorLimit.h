#pragma once
// How many descriptors the process may have open: every client is one.

#include <cstdint>

namespace vorrim {

// Raises the limit as far as the system lets an ordinary process; returns what it is then.
[[nodiscard]] std::uint64_t raiseDescriptorLimit() noexcept;

// Makes the process's table of descriptors as long as that now. Left to itself it doubles when it
// is full, and in a process of several threads whoever needs it longer waits until every processor
// has noticed: tens of milliseconds, for a worker and all whom it serves. Where the system does not
// allow so many, nothing happens.
void prepareDescriptors(std::uint64_t count) noexcept;

// What a server needs that admits so many clients with so many workers: the clients, the doors, the
// files, the readiness sets, and some more for reachability tests and for clients that it turns
// away.
[[nodiscard]] std::uint64_t descriptorsNeeded(std::int32_t clients, std::int32_t workers) noexcept;

}  // namespace vorrim
