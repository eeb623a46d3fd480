#pragma once
// RowLists by a 32-bit key: the lists of the keywords, or of the buckets. A key without rows costs
// nothing, a key with one or two rows one slot of 16 bytes.
//
// Threads     None inside; const operations may run side by side.
#include <cstddef>
#include <cstdint>

#include "client/index/FlatShards.h"
#include "client/index/KeyedHash.h"
#include "client/index/RowList.h"

namespace vorrim {

class RowListTable {
public:
    RowListTable() : lists_(HashOfKey{}) {}

    // The list under exactly this key, or null. Valid until the next change.
    [[nodiscard]] const RowList* find(std::uint32_t key) const noexcept { return slot(key); }

    // Appends to the key's list, which is made when there is none. The row is higher than all in
    // it. Returns whether the list is new.
    bool append(std::uint32_t key, std::uint32_t row);
    // Removes a row that is in the key's list; the last one takes the list with it. Returns whether
    // it did.
    bool erase(std::uint32_t key, std::uint32_t row);

    // Renumbers all lists; see RowList.
    template <class NewRow>
    void renumber(NewRow&& new_row) {
        lists_.for_each([&](RowList& list) { list.renumber(new_row); });
    }

    [[nodiscard]] std::size_t size() const noexcept { return lists_.size(); }
    [[nodiscard]] std::size_t heap_bytes() const noexcept;

    // Fetches a key's slot in advance.
    void prefetch(std::uint32_t key) const noexcept { lists_.prefetch(hash_of(key)); }

private:
    struct HashOfKey {
        KeyedHash keyed;
        std::uint32_t operator()(const RowList& list) const noexcept {
            return keyed.of(list.key());
        }
    };

    [[nodiscard]] std::uint32_t hash_of(std::uint32_t key) const noexcept {
        return lists_.hasher().keyed.of(key);
    }
    [[nodiscard]] RowList* slot(std::uint32_t key) const noexcept {
        return lists_.find(hash_of(key), [key](const RowList& list) { return list.key() == key; });
    }

    FlatShards<RowList, HashOfKey> lists_;
};

}  // namespace vorrim
