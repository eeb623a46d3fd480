#pragma once
// An ordered set of entries, named by their rows: the files listed under one keyword, or in one
// bucket. Rows are given out in order of creation, so that ascending rows are the order of first
// publication.
//
//     [ key | count | row row ]        one or two rows: in the header, nothing allocated
//     [ key | count | ·─────► ]        up to a thousand: one array   [row row row ...]
//     [ key | count | ·─────► ]        more: RowBlocks
//
// The header is 16 bytes. Appending costs the end of the list, erasing a binary search and a move
// of at most 4 KiB. `key` belongs to the table that holds the list.
//
// Threads     None inside; const operations may run side by side.
#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>

#include "base/memory/PageHeap.h"
#include "client/index/RowBlocks.h"

namespace vorrim {

class RowList {
public:
    RowList() noexcept : RowList(0) {}
    explicit RowList(std::uint32_t key) noexcept : key_(key), inline_{0, 0} {}
    RowList(RowList&& other) noexcept;
    RowList& operator=(RowList&& other) noexcept;
    ~RowList() { clear(); }

    [[nodiscard]] std::uint32_t key() const noexcept { return key_; }
    [[nodiscard]] std::uint32_t size() const noexcept { return count_; }
    [[nodiscard]] bool empty() const noexcept { return count_ == 0; }

    // Appends a row that is higher than all in the list. Raises std::bad_alloc, and has changed
    // nothing then.
    void append(std::uint32_t row);
    // Removes a row that is in the list. Without memory for a smaller form it keeps the one it has.
    void erase(std::uint32_t row) noexcept;
    void clear() noexcept;
    // How many rows of the list are lower: the position of a row that is in it.
    [[nodiscard]] std::uint32_t rank(std::uint32_t row) const noexcept;

    // Hands over the rows from position `from` on, in ascending order, in runs of either form:
    //     visitor.rows(span)                    some rows
    //     visitor.window(base, bits, first)     the rows base + i whose bit i is set, those below
    //                                           `first` excepted
    // until the end, or until one returns false. Returns whether the end was reached.
    template <class Visitor>
    bool visit(std::uint32_t from, Visitor&& visitor) const {
        if (from >= count_) return true;
        if (form() == Form::blocks) return blocks()->visit(from, std::forward<Visitor>(visitor));
        return visitor.rows(short_rows().subspan(from));
    }

    // Calls visit(run) for runs of rows (RowBlocks::Run) that follow one another, until one returns
    // false.
    template <class Visit>
    bool visit_runs(Visit&& visit_run) const {
        if (form() == Form::blocks) return blocks()->visit_runs(std::forward<Visit>(visit_run));
        const std::span<const std::uint32_t> rows = short_rows();
        return rows.empty() ||
               visit_run(RowBlocks::Run{rows.front(), rows.back() + 1, rows, nullptr});
    }

    // A row that as many rows of the list are lower than, for visit from there on in a list that
    // has changed meanwhile.
    [[nodiscard]] std::uint32_t row_at(std::uint32_t position) const noexcept;

    // Calls visit(row) for every row in ascending order.
    template <class Visit>
    void for_each(Visit&& visit_row) const;

    // The same list with every row replaced by new_row(row), which must keep their order.
    template <class NewRow>
    [[nodiscard]] RowList renumbered(NewRow&& new_row) const;

    // Fetch in advance what an append, or the erasure of a row that is in the list, touches. What
    // a step, counted from 0, fetches must be at hand for the next; true while there is one.
    bool prefetch_append(int step) const noexcept;
    bool prefetch_erase(std::uint32_t row, int step) const noexcept;

private:
    enum class Form { in_header, array, blocks };

    static constexpr std::uint32_t kInlineRows = 2;
    static constexpr std::uint32_t kArrayRows = RowBlocks::kBlockRows;
    static constexpr std::uintptr_t kBlocksAreHere = 1;

    [[nodiscard]] Form form() const noexcept {
        return count_ <= kInlineRows            ? Form::in_header
               : (place_ & kBlocksAreHere) == 0 ? Form::array
                                                : Form::blocks;
    }
    [[nodiscard]] std::uint32_t* array() const noexcept {
        return reinterpret_cast<std::uint32_t*>(place_);
    }
    [[nodiscard]] RowBlocks* blocks() const noexcept {
        return reinterpret_cast<RowBlocks*>(place_ - kBlocksAreHere);
    }
    [[nodiscard]] std::span<const std::uint32_t> short_rows() const noexcept {
        return count_ <= kInlineRows ? std::span(inline_, count_) : std::span(array(), count_);
    }
    // The capacity of the array for so many rows, growing by an eighth to a quarter. The array
    // never has less, so that what it has need not be remembered.
    [[nodiscard]] static constexpr std::uint32_t capacity_for(std::uint32_t rows) noexcept {
        const std::uint32_t step = std::max<std::uint32_t>(4, std::bit_floor(rows) / 4);
        return std::min(kArrayRows, (rows + step - 1) / step * step);
    }
    void become(PageHeap::Array<std::uint32_t> array) noexcept;
    void array_to_blocks();
    void shrink_array() noexcept;
    void shrink_blocks() noexcept;

    std::uint32_t key_;
    std::uint32_t count_ = 0;
    union {
        std::uint32_t inline_[kInlineRows];
        std::uintptr_t place_;  // of the array, or of the blocks and kBlocksAreHere
    };
};

static_assert(sizeof(RowList) == 16);

template <class Visit>
void RowList::for_each(Visit&& visit_row) const {
    if (form() == Form::blocks) {
        blocks()->for_each(visit_row);
    } else {
        for (const std::uint32_t row : short_rows())
            visit_row(row);
    }
}

template <class NewRow>
RowList RowList::renumbered(NewRow&& new_row) const {
    RowList list(key_);
    for_each([&](std::uint32_t row) { list.append(new_row(row)); });
    return list;
}

}  // namespace vorrim
