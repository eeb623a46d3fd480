#pragma once
// A map from a key that many may share to the one of them that arrived first.
//
// Nearly every key has one owner, which costs one probe and one slot. Where several share a key
// (all who have not logged in share the identifier 0), the later ones wait in order of arrival.

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <new>
#include <unordered_map>

namespace vorrim {

// No locks inside: the owner's lock guards it. T has arrival(), a number that only grows.
template <class Key, class T, class Hash>
class ArrivalMap final {
public:
    explicit ArrivalMap(Hash hash) : slots_(0, hash) {}

    [[nodiscard]] T* find(const Key& key) const {
        const auto found = slots_.find(key);
        return found == slots_.end() ? nullptr : found->second.first;
    }

    void insert(const Key& key, T& item) {
        Slot& slot = slots_[key];
        if (slot.first == nullptr) {
            slot.first = &item;
            return;
        }
        if (!slot.later) slot.later = std::make_unique<Later>();
        const bool is_first = item.arrival() < slot.first->arrival();
        T* const later = is_first ? slot.first : &item;
        slot.later->emplace(later->arrival(), later);
        if (is_first) slot.first = &item;
    }

    void erase(const Key& key, const T& item) {
        const auto found = slots_.find(key);
        if (found == slots_.end()) return;
        Slot& slot = found->second;
        if (slot.first != &item) {
            if (slot.later) slot.later->erase(item.arrival());
        } else if (slot.later && !slot.later->empty()) {
            slot.first = slot.later->begin()->second;
            slot.later->erase(slot.later->begin());
        } else {
            slots_.erase(found);
            shrink();
            return;
        }
        if (slot.later && slot.later->empty()) slot.later.reset();
    }

private:
    using Later = std::map<std::uint64_t, T*>;
    struct Slot {
        T* first = nullptr;
        std::unique_ptr<Later> later;
    };

    // Buckets stay as many as they have been until so few of them are in use. What memory does not
    // allow now comes with the next.
    void shrink() {
        constexpr std::size_t kFew = 64;
        if (slots_.bucket_count() <= kFew || slots_.size() >= slots_.bucket_count() / 8) return;
        try {
            slots_.rehash(2 * slots_.size());
        } catch (const std::bad_alloc&) {
        }
    }

    std::unordered_map<Key, Slot, Hash> slots_;
};

}  // namespace vorrim
