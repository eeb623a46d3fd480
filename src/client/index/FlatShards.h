#pragma once
// A hash table in flat memory: open addressing with linear probing, cut into 256 shards by the top
// bits of the hash. Each shard grows on its own, so that the longest pause of a growth is that of
// one shard, and by a third, so that little memory stands empty.
//
//     hash  [shard: 8 | position: 24]      shard   [slot][ ][slot][slot][ ][ ][slot] ...
//
// A Slot is movable; a default one is empty (`empty()`), a moved-from one is made so again. HashOf
// maps a full slot back to the hash under which it was inserted. Hashes come from a keyed function:
// the keys of our tables are chosen by clients.
//
// Threads     None inside; const operations may run side by side.
#include <array>
#include <cstddef>
#include <cstdint>
#include <new>
#include <tuple>
#include <utility>

#include "base/memory/PageHeap.h"

namespace vorrim {

template <class Slot, class HashOf>
class FlatShards {
public:
    explicit FlatShards(HashOf hash_of) : hash_of_(std::move(hash_of)) {}

    [[nodiscard]] std::size_t size() const noexcept { return size_; }
    [[nodiscard]] const HashOf& hasher() const noexcept { return hash_of_; }

    // The slot with this hash for which matches(slot) is true, or null.
    template <class Matches>
    [[nodiscard]] Slot* find(std::uint32_t hash, Matches&& matches) const {
        const Shard& shard = shards_[shard_of(hash)];
        if (shard.slots.size() == 0) return nullptr;
        for (std::uint32_t at = home(hash, shard); !shard.slots[at].empty(); at = next(at, shard))
            if (matches(std::as_const(shard.slots[at]))) return &shard.slots[at];
        return nullptr;
    }

    // An empty slot for a key that is not there; the caller fills it at once. Moves other slots.
    // Raises std::bad_alloc, and nothing has changed then.
    [[nodiscard]] Slot& insert(std::uint32_t hash) {
        Shard& shard = shards_[shard_of(hash)];
        if (too_full(shard.size + 1, shard.slots.size()) &&
            !resize(shard, shard.slots.size() + shard.slots.size() / 3 + kFirstCapacity))
            throw std::bad_alloc();
        ++shard.size;
        ++size_;
        return vacancy(hash, shard);
    }

    // Empties a slot that find or insert returned. Moves other slots.
    void erase(Slot& slot) noexcept {
        Shard& shard = shards_[shard_of(hash_of_(slot))];
        auto hole = static_cast<std::uint32_t>(&slot - shard.slots.data());
        shard.slots[hole] = Slot{};
        // Slots behind the hole move up unless that would carry them before their home.
        for (std::uint32_t at = next(hole, shard); !shard.slots[at].empty(); at = next(at, shard)) {
            const std::uint32_t from_home =
                distance(home(hash_of_(shard.slots[at]), shard), at, shard);
            if (from_home < distance(hole, at, shard)) continue;
            shard.slots[hole] = std::exchange(shard.slots[at], Slot{});
            hole = at;
        }
        --shard.size;
        --size_;
        // Without memory for a smaller one it keeps the size it has.
        if (shard.size == 0 || shard.size < shard.slots.size() / 4)
            std::ignore =
                resize(shard, shard.size == 0 ? 0 : shard.size + shard.size / 2 + kFirstCapacity);
    }

    // The same keys with other contents: turned(slot) for each.
    template <class Turned>
    [[nodiscard]] FlatShards with_each(Turned&& turned) const {
        FlatShards result(hash_of_);
        for (std::size_t number = 0; number < shards_.size(); ++number) {
            const Shard& from = shards_[number];
            Shard& to = result.shards_[number];
            to = {PageArray<Slot>::make(from.slots.size()), from.size};
            for (std::uint32_t at = 0; at < from.slots.size(); ++at)
                if (!from.slots[at].empty()) to.slots[at] = turned(std::as_const(from.slots[at]));
        }
        result.size_ = size_;
        return result;
    }

    template <class Visit>
    void for_each(Visit&& visit) const {
        for (const Shard& shard : shards_)
            for (Slot& slot : shard.slots)
                if (!slot.empty()) visit(slot);
    }

    void prefetch(std::uint32_t hash) const noexcept {
        const Shard& shard = shards_[shard_of(hash)];
        if (shard.slots.size() != 0) __builtin_prefetch(&shard.slots[home(hash, shard)]);
    }

private:
    struct Shard {
        PageArray<Slot> slots;
        std::uint32_t size = 0;  // full ones
    };

    static constexpr int kShardBits = 8;
    static constexpr std::uint32_t kFirstCapacity = 3;

    static constexpr std::size_t shard_of(std::uint32_t hash) { return hash >> (32 - kShardBits); }
    static std::uint32_t home(std::uint32_t hash, const Shard& shard) noexcept {
        const std::uint64_t position = static_cast<std::uint32_t>(hash << kShardBits);
        return static_cast<std::uint32_t>((position * shard.slots.size()) >> 32);
    }
    static std::uint32_t next(std::uint32_t at, const Shard& shard) noexcept {
        return at + 1 == shard.slots.size() ? 0 : at + 1;
    }
    static std::uint32_t distance(std::uint32_t from, std::uint32_t to,
                                  const Shard& shard) noexcept {
        return to >= from ? to - from : to + shard.slots.size() - from;
    }
    // At most four fifths of the slots are full, and so at least one is empty.
    static constexpr bool too_full(std::uint32_t size, std::uint32_t capacity) {
        return std::uint64_t{size} * 5 > std::uint64_t{capacity} * 4;
    }
    static Slot& vacancy(std::uint32_t hash, Shard& shard) noexcept {
        std::uint32_t at = home(hash, shard);
        while (!shard.slots[at].empty())
            at = next(at, shard);
        return shard.slots[at];
    }

    // False, and nothing has changed, when there is no memory.
    [[nodiscard]] bool resize(Shard& shard, std::uint32_t capacity) noexcept {
        Shard resized{PageArray<Slot>::try_make(capacity), shard.size};
        if (resized.slots.size() != capacity) return false;
        for (Slot& slot : shard.slots)
            if (!slot.empty()) vacancy(hash_of_(slot), resized) = std::move(slot);
        shard = std::move(resized);
        return true;
    }

    std::array<Shard, std::size_t{1} << kShardBits> shards_;
    std::size_t size_ = 0;
    HashOf hash_of_;
};

}  // namespace vorrim
