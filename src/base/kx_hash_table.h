#pragma once
// What HashTable32 and HashTable128 are made of: a fixed number of buckets, each a chain of
// entries, each entry the list of all values under its key.
//
//     buckets   [ 0 ] ─► entry ─► entry
//               [ 1 ]      │ key, list of values
//               [ 2 ] ─► entry
//
// Ownership   The table owns its entries and borrows the values.
// Cost        The buckets never grow; whoever calls set_size chooses.
// Threads     None inside.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "base/kx_err.h"
#include "base/kx_list.h"

namespace vorrim {

// `Bucket` is a function object from a key to the number whose remainder is the bucket.
template <class Key, class Value, class Bucket>
class kx_hash_table {
public:
    class Entry final : public kx_list<Value*> {
    public:
        explicit Entry(const Key& key) : key_(key) {}
        [[nodiscard]] const Key& key() const noexcept { return key_; }

    private:
        Key key_;
    };

    // Destroys all entries and makes `count` empty buckets.
    void set_size(std::uint32_t count) {
        buckets_.clear();
        buckets_.resize(count);
    }

    // Raises "hash table without buckets" before set_size.
    Entry& add(const Key& key, Value* value) {
        if (buckets_.empty()) kx_error("hash table without buckets");
        Entry* entry = find(key);
        if (entry == nullptr) {
            auto made = std::make_unique<Entry>(key);
            entry = made.get();
            bucket(key).append(std::move(made));
        }
        entry->append(value);
        return *entry;
    }
    // An entry that loses its last value is destroyed. Nothing happens for a key that is absent.
    void remove(const Key& key, const Value* value) noexcept {
        Entry* const entry = find(key);
        if (entry == nullptr) return;
        entry->remove(value);
        if (entry->empty()) bucket(key).remove(entry);
    }
    // Null when the key is absent. The entry lives until its last value is removed.
    [[nodiscard]] Entry* find(const Key& key) const noexcept {
        if (buckets_.empty()) return nullptr;
        for (const std::unique_ptr<Entry>& entry : bucket(key))
            if (entry->key() == key) return entry.get();
        return nullptr;
    }

private:
    using Chain = kx_list<std::unique_ptr<Entry>>;

    [[nodiscard]] const Chain& bucket(const Key& key) const noexcept {
        return buckets_[Bucket{}(key) % buckets_.size()];
    }
    [[nodiscard]] Chain& bucket(const Key& key) noexcept {
        return buckets_[Bucket{}(key) % buckets_.size()];
    }

    std::vector<Chain> buckets_;
};

}  // namespace vorrim
