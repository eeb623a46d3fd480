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
#include <vector>

#include "client/index/FlatShards.h"
#include "client/index/KeyedHash.h"
#include "meta/ClientId.h"

namespace vorrim {

class OwnerIndex {
public:
    // The handles of one client, taken out of the index.
    class Handles {
    public:
        // All of them in ascending order, with repetitions.
        [[nodiscard]] std::vector<std::uint32_t> sorted() const;
        [[nodiscard]] bool empty() const noexcept { return runs_.empty(); }

    private:
        friend class OwnerIndex;
        std::vector<std::uint8_t> runs_;
    };

    OwnerIndex() : owners_(HashOfOwner{}) {}

    // Adds handles to a client. Sorts them in place.
    void add(ClientId client, std::vector<std::uint32_t>& handles);
    [[nodiscard]] bool has(ClientId client) const noexcept { return find(client) != nullptr; }
    // Takes all handles of a client; it owns none afterwards.
    [[nodiscard]] Handles take(ClientId client) noexcept;

    [[nodiscard]] std::size_t heap_bytes() const noexcept;

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
