#pragma once
// From a file hash to the handle of its entry: one probe of flat memory, whatever `tableSize` says.
// A slot keeps 32 bits of the keyed hash beside the handle, so that an entry is only looked at when
// it is almost surely the right one, and growing never looks at entries at all.
//
// Threads     None inside; const operations may run side by side.
#include <cstdint>

#include "client/index/EntrySlab.h"
#include "client/index/FlatShards.h"
#include "client/index/KeyedHash.h"

namespace vorrim {

class HashToEntry {
public:
    HashToEntry() : slots_(HashOfSlot{}) {}

    // The entry with this hash, or EntrySlab::kNone.
    [[nodiscard]] std::uint32_t find(std::uint32_t digest, const FileHash& hash,
                                     const EntrySlab& entries) const noexcept {
        const Slot* const slot = slots_.find(digest, [&](const Slot& candidate) {
            return candidate.digest == digest && entries[candidate.handle].hash == hash;
        });
        return slot == nullptr ? EntrySlab::kNone : slot->handle;
    }
    // The first entry with this digest, or EntrySlab::kNone. Almost surely the one that find finds,
    // without a look at it.
    [[nodiscard]] std::uint32_t find_likely(std::uint32_t digest) const noexcept {
        const Slot* const slot =
            slots_.find(digest, [&](const Slot& candidate) { return candidate.digest == digest; });
        return slot == nullptr ? EntrySlab::kNone : slot->handle;
    }
    void insert(std::uint32_t digest, std::uint32_t handle) {
        slots_.insert(digest) = {digest, handle};
    }
    void erase(std::uint32_t digest, std::uint32_t handle) noexcept {
        slots_.erase(*slots_.find(
            digest, [handle](const Slot& candidate) { return candidate.handle == handle; }));
    }
    void prefetch(std::uint32_t digest) const noexcept { slots_.prefetch(digest); }

private:
    struct Slot {
        std::uint32_t digest = 0;
        std::uint32_t handle = EntrySlab::kNone;
        [[nodiscard]] bool empty() const noexcept { return handle == EntrySlab::kNone; }
    };
    struct HashOfSlot {
        std::uint32_t operator()(const Slot& slot) const noexcept { return slot.digest; }
    };

    FlatShards<Slot, HashOfSlot> slots_;
};

}  // namespace vorrim
