#pragma once
// The long form of a RowList: blocks in ascending order of their rows.
//
//     directory  [base|count|capacity|·] [base|count|capacity|·] [base|count|capacity|·]
//                                     │                       │                       │
//        rows      3 17 901 ... ◄─────┘   bits of 4096..8191 ◄┘      9001 9377 ... ◄──┘
//
// A block is an array of at most 1024 rows, or, where at least 1 row in 32 of an aligned window of
// 4096 is in the list, the bitmap of that window, which takes no more. So a row leaves a list of
// any length by moving at most 4 KiB, frequent words cost bits instead of rows, and a search ANDs
// whole words of them.
//
// Threads     None inside; const operations may run side by side.
#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/memory/PageHeap.h"

namespace vorrim {

class RowBlocks {
public:
    static constexpr std::uint32_t kWindowBits = 12;
    static constexpr std::uint32_t kWindowRows = 1u << kWindowBits;
    static constexpr std::uint32_t kWindowWords = kWindowRows / 64;
    static constexpr std::uint32_t kBlockRows = 1024;
    // Rows of one window at which its array turns into a bitmap, and below which it turns back.
    static constexpr std::uint32_t kDense = kWindowRows / 32;
    static constexpr std::uint32_t kSparse = kDense / 2;

    using Window = std::span<const std::uint64_t, kWindowWords>;

    RowBlocks() = default;

    // Appends a row that is higher than all in the list. Raises std::bad_alloc, and the list is as
    // it was then.
    void append(std::uint32_t row);
    // Removes a row that is in the list. Without memory for a smaller form it keeps the one it has.
    void erase(std::uint32_t row) noexcept;
    // How many rows of the list are lower.
    [[nodiscard]] std::uint32_t rank(std::uint32_t row) const noexcept;

    // See RowList::visit.
    template <class Visitor>
    bool visit(std::uint32_t from, Visitor&& visitor) const;

    // Some of a list's rows, with all that lie between two numbers.
    struct Run {
        std::uint32_t base;  // none is lower
        std::uint32_t end;   // none is as high
        std::span<const std::uint32_t> rows;
        const std::uint64_t* bits;  // of the window that begins at base; null: see `rows`
    };
    // Calls visit(run) for runs that follow one another until one returns false. Does not look at
    // the rows.
    template <class Visit>
    bool visit_runs(Visit&& visit_run) const;

    // Hands over the rows base + i of the bits i of a window that are not lower than `first`, in
    // ascending runs of 1 to 64, until visit_run(span) returns false; returns whether it did
    // not.
    template <class VisitRun>
    static bool visit_window(std::uint32_t base, Window words, std::uint32_t first,
                             VisitRun&& visit_run);

    // Calls visit(row) for every row in ascending order.
    template <class Visit>
    void for_each(Visit&& visit_row) const;

    // See RowList; the blocks themselves are at hand.
    bool prefetch_append(int step) const noexcept;
    bool prefetch_erase(std::uint32_t row, int step) const noexcept;

private:
    struct Block {
        std::uint32_t base = 0;   // no row of the block is lower, none of the one before is as high
        std::uint16_t count = 0;  // rows in the block
        std::uint16_t capacity = 0;  // of the array; 0 tells a bitmap
        PageHeap::Array<std::byte> data;

        [[nodiscard]] bool bitmap() const noexcept { return capacity == 0; }
        [[nodiscard]] std::uint32_t* rows() const noexcept {
            return reinterpret_cast<std::uint32_t*>(data.get());
        }
        [[nodiscard]] std::uint64_t* bits() const noexcept {
            return reinterpret_cast<std::uint64_t*>(data.get());
        }
        [[nodiscard]] std::span<const std::uint32_t> array() const noexcept {
            return {rows(), count};
        }
    };

    static constexpr std::uint32_t kFirstCapacity = 64;

    // Without data when there is no memory.
    [[nodiscard]] static Block try_array(std::uint32_t base, std::uint32_t capacity) noexcept;
    [[nodiscard]] static Block try_bitmap(std::uint32_t window_start) noexcept;
    // Raises std::bad_alloc.
    [[nodiscard]] static Block with_data(Block block);
    // False, and nothing has changed, when there is no memory.
    [[nodiscard]] static bool resize_array(Block& block, std::uint32_t capacity) noexcept;
    // The row number `index` of a bitmap, counted from 0.
    [[nodiscard]] static std::uint32_t select(const Block& block, std::uint32_t index) noexcept;

    // Where the row's block should be, and where it is.
    [[nodiscard]] std::size_t likely_block_of(std::uint32_t row) const noexcept;
    [[nodiscard]] std::size_t block_of(std::uint32_t row) const noexcept;
    void turn_tail_dense(std::uint32_t window_start);
    static void turn_sparse(Block& block) noexcept;
    void tidy(std::size_t index) noexcept;
    [[nodiscard]] bool merge_with_next(std::size_t index) noexcept;

    std::vector<Block> blocks_;
};

template <class Visitor>
bool RowBlocks::visit(std::uint32_t from, Visitor&& visitor) const {
    for (const Block& block : blocks_) {
        if (from >= block.count) {
            from -= block.count;
            continue;
        }
        const bool more = block.bitmap()
                              ? visitor.window(block.base, Window(block.bits(), kWindowWords),
                                               from == 0 ? block.base : select(block, from))
                              : visitor.rows(block.array().subspan(from));
        if (!more) return false;
        from = 0;
    }
    return true;
}

template <class Visit>
bool RowBlocks::visit_runs(Visit&& visit_run) const {
    for (std::size_t i = 0; i < blocks_.size(); ++i) {
        const Block& block = blocks_[i];
        const std::uint32_t end = i + 1 < blocks_.size() ? blocks_[i + 1].base : UINT32_MAX;
        const bool more =
            block.bitmap()
                ? visit_run(
                      Run{block.base, std::min(end, block.base + kWindowRows), {}, block.bits()})
                : visit_run(Run{block.base, end, block.array(), nullptr});
        if (!more) return false;
    }
    return true;
}

template <class VisitRun>
bool RowBlocks::visit_window(std::uint32_t base, Window words, std::uint32_t first,
                             VisitRun&& visit_run) {
    for (std::uint32_t word = (first - base) / 64; word < words.size(); ++word) {
        std::array<std::uint32_t, 64> run;
        std::size_t count = 0;
        for (std::uint64_t rest = words[word]; rest != 0; rest &= rest - 1) {
            const std::uint32_t row =
                base + word * 64 + static_cast<std::uint32_t>(std::countr_zero(rest));
            if (row >= first) run[count++] = row;
        }
        if (count != 0 && !visit_run(std::span<const std::uint32_t>(run.data(), count)))
            return false;
    }
    return true;
}

template <class Visit>
void RowBlocks::for_each(Visit&& visit_row) const {
    for (const Block& block : blocks_) {
        if (!block.bitmap()) {
            for (const std::uint32_t row : block.array())
                visit_row(row);
            continue;
        }
        for (std::uint32_t word = 0; word < kWindowWords; ++word)
            for (std::uint64_t rest = block.bits()[word]; rest != 0; rest &= rest - 1)
                visit_row(block.base + word * 64 +
                          static_cast<std::uint32_t>(std::countr_zero(rest)));
    }
}

}  // namespace vorrim
