#pragma once
// Which entries a client is a source of, so that its departure costs its own files only.
//
//     identifier ──► [ count first delta delta ... | count first delta ... | ... ]
//                      one run per published slice: handles ascending, as 7-bit groups
//
// New files get neighbouring handles, so that a pair costs one or two bytes. A client that is a
// source of an entry twice has its handle twice.
//
// Threads     None inside.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "client/index/FlatShards.h"
#include "client/index/KeyedHash.h"
#include "meta/ClientId.h"

namespace vorrim {

class OwnerIndex {
public:
    // The handles of one client, taken out of the index, to be read once.
    class Handles {
    public:
        // Reads the next ones, as many as there is room for, ascending within their slice. Returns
        // their number: 0 when none are left.
        [[nodiscard]] std::size_t read(std::span<std::uint32_t> to) noexcept;
        [[nodiscard]] bool empty() const noexcept { return !runs_; }

    private:
        friend class OwnerIndex;
        std::unique_ptr<std::vector<std::uint8_t>> runs_;  // null when all are read
        std::size_t at_ = 0;
        std::uint32_t left_ = 0;  // of the slice
        std::uint32_t last_ = 0;
    };

    OwnerIndex() : owners_(HashOfOwner{}) {}

    // Makes room for a slice of so many handles of a client, so that adding them needs no memory.
    // Raises std::bad_alloc, and nothing has changed then.
    void make_room(ClientId client, std::size_t handles);
    // Adds the slice for which room was made, or what has come of it. Sorts it in place.
    void add(ClientId client, std::span<std::uint32_t> handles) noexcept;
    [[nodiscard]] bool has(ClientId client) const noexcept { return find(client) != nullptr; }
    // Takes all handles of a client; it owns none afterwards.
    [[nodiscard]] Handles take(ClientId client) noexcept;

private:
    struct Owner {
        std::uint32_t id = 0;
        std::unique_ptr<std::vector<std::uint8_t>> runs;
        [[nodiscard]] bool empty() const noexcept { return !runs; }
    };
    struct HashOfOwner {
        KeyedHash keyed;
        std::uint32_t operator()(const Owner& owner) const noexcept { return keyed.of(owner.id); }
    };

    [[nodiscard]] Owner* find(ClientId client) const noexcept;

    FlatShards<Owner, HashOfOwner> owners_;
};

}  // namespace vorrim
