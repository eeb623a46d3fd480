#pragma once
// A map from a key that many may share to the one of them that arrived first.
//
// Nearly every key has one owner, which costs one probe and one slot. Where several share a key
// (all who have not logged in share the identifier 0), the later ones wait in order of arrival. The
// table grows a part at a time: nobody waits for a million others to be sorted anew.

#include <cstdint>
#include <map>
#include <memory>
#include <utility>

#include "client/index/FlatShards.h"

namespace vorrim {

// Traits::key_of(item) is the key of an item and does not change while it is in the map, hash(key)
// 32 bits of it, well mixed. T has arrival(), a number that only grows.
//
// Ownership   Refers to the items.
// Threads     None inside: the owner's lock guards it.
template <class T, class Traits>
class ArrivalMap final {
public:
    explicit ArrivalMap(Traits traits = {}) : traits_(std::move(traits)), slots_(HashOfSlot{}) {}

    template <class Key>
    [[nodiscard]] T* find(const Key& key) const {
        const Slot* const slot = slot_of(key);
        return slot == nullptr ? nullptr : slot->first;
    }

    // Raises std::bad_alloc, and has changed nothing then.
    void insert(T& item) {
        const auto key = Traits::key_of(item);
        Slot* const slot = slot_of(key);
        if (slot == nullptr) {
            const std::uint32_t hash = traits_.hash(key);
            slots_.insert(hash) = {hash, &item, nullptr};
            return;
        }
        if (!slot->later) slot->later = std::make_unique<Later>();
        const bool is_first = item.arrival() < slot->first->arrival();
        T* const later = is_first ? slot->first : &item;
        slot->later->emplace(later->arrival(), later);
        if (is_first) slot->first = &item;
    }

    // Nothing where it is not in the map.
    void erase(const T& item) noexcept {
        Slot* const slot = slot_of(Traits::key_of(item));
        if (slot == nullptr) return;
        const bool others = slot->later && !slot->later->empty();
        if (slot->first != &item) {
            if (others) slot->later->erase(item.arrival());
        } else if (others) {
            slot->first = slot->later->begin()->second;
            slot->later->erase(slot->later->begin());
        } else {
            slots_.erase(*slot);
            return;
        }
        if (slot->later && slot->later->empty()) slot->later.reset();
    }

private:
    using Later = std::map<std::uint64_t, T*>;
    struct Slot {
        std::uint32_t hash = 0;
        T* first = nullptr;
        std::unique_ptr<Later> later;
        [[nodiscard]] bool empty() const noexcept { return first == nullptr; }
    };
    struct HashOfSlot {
        std::uint32_t operator()(const Slot& slot) const noexcept { return slot.hash; }
    };

    template <class Key>
    [[nodiscard]] Slot* slot_of(const Key& key) const {
        const std::uint32_t hash = traits_.hash(key);
        return slots_.find(hash, [&](const Slot& slot) {
            return slot.hash == hash && Traits::key_of(*slot.first) == key;
        });
    }

    Traits traits_;
    FlatShards<Slot, HashOfSlot> slots_;
};

}  // namespace vorrim
