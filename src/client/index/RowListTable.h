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
    // it. Returns whether the list is new. Raises std::bad_alloc, and has changed nothing then.
    bool append(std::uint32_t key, std::uint32_t row);
    // Removes a row that is in the key's list; the last one takes the list with it. Returns whether
    // it did.
    bool erase(std::uint32_t key, std::uint32_t row) noexcept;

    // All lists with other rows; see RowList.
    template <class NewRow>
    [[nodiscard]] RowListTable renumbered(NewRow&& new_row) const {
        RowListTable table;
        table.lists_ =
            lists_.with_each([&](const RowList& list) { return list.renumbered(new_row); });
        return table;
    }

    [[nodiscard]] std::size_t size() const noexcept { return lists_.size(); }

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
