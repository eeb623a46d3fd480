#pragma once
// A run of rows and what a search wants to know of each without touching its record.
//
//     slot          0    1    2    3  ...                         up to 32768 slots, one per row
//     row           r    r+1  r+2  r+3 ...   (dense)   or   listed, ascending (packed)
//     record        where the record of the row's entry lies
//     live          1    0    1    1  ...    one bit: the row has an entry
//     reachable     1    0    0    1  ...    one bit: some source has a high identifier
//     column 0..447 one bit each: the entry's TextSignature, cut across
//     grams         what occurs in the texts of each 512 rows (GramFilter)
//
// Cut across, a signature test of 64 rows is one AND, and a search that needs a handful of columns
// reads those and no others. A column of a segment is one run of at most 4 KiB: so long that a
// search that goes through the segments seldom changes the page of memory.
//
// A segment begins dense, covering one aligned window of rows, and stays so until half of it is
// dead. Then it is packed: its live rows move together, the rows themselves stay as they are in
// all lists.
//
// Threads     None inside; const operations may run side by side.
#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "base/memory/PageHeap.h"
#include "client/index/GramFilter.h"
#include "client/index/RowBlocks.h"
#include "client/index/TextMarks.h"
#include "meta/FrozenRecord.h"

namespace vorrim {

class Segment {
public:
    // 512 bits that are fetched together. Without a value of its own it is not cleared.
    struct alignas(64) Line {
        std::array<std::uint64_t, 8> words;
        static constexpr std::uint32_t kRows = 512;

        // In pairs of words, which compilers make vectors of.
        Line& operator&=(const Line& other) noexcept {
            for (std::size_t i = 0; i < words.size(); i += 2)
                pair(i) &= other.pair(i);
            return *this;
        }
        Line& operator|=(const Line& other) noexcept {
            for (std::size_t i = 0; i < words.size(); i += 2)
                pair(i) |= other.pair(i);
            return *this;
        }
        [[nodiscard]] bool any() const noexcept {
            const Pair all = (pair(0) | pair(2)) | (pair(4) | pair(6));
            return (all[0] | all[1]) != 0;
        }
        [[nodiscard]] int count() const noexcept {
            int bits = 0;
            for (const std::uint64_t word : words)
                bits += std::popcount(word);
            return bits;
        }
        [[nodiscard]] bool test(std::uint32_t bit) const noexcept {
            return (words[bit / 64] >> (bit % 64) & 1) != 0;
        }
        void set(std::uint32_t bit) noexcept { words[bit / 64] |= std::uint64_t{1} << (bit % 64); }
        void reset(std::uint32_t bit) noexcept {
            words[bit / 64] &= ~(std::uint64_t{1} << (bit % 64));
        }

    private:
        using Pair [[gnu::vector_size(16), gnu::may_alias]] = std::uint64_t;
        Pair& pair(std::size_t word) noexcept { return *reinterpret_cast<Pair*>(&words[word]); }
        [[nodiscard]] const Pair& pair(std::size_t word) const noexcept {
            return *reinterpret_cast<const Pair*>(&words[word]);
        }
    };

    // Searches work in stretches: one bit for each of 4096 slots, as many as a window of a RowList
    // has rows. In a dense segment the two coincide.
    static constexpr std::uint32_t kStretchRows = RowBlocks::kWindowRows;
    static constexpr std::uint32_t kStretchLines = kStretchRows / Line::kRows;
    using Stretch = std::array<Line, kStretchLines>;

    // An empty dense segment for the rows from first_row, a multiple of max_rows, on. It grows up
    // to max_rows, a power of two of at least a stretch and at most kMaxRows.
    static constexpr std::uint32_t kMaxRows = GramFilter::kMaxParts * GramFilter::kPartRows;
    Segment(std::uint32_t first_row, std::uint32_t max_rows);

    // The next row of a dense segment that is not full; the marks are those of the record's texts.
    // Returns its slot. Raises std::bad_alloc, and has changed nothing then.
    std::uint32_t append(RecordPlace record, const TextMarks& marks, bool reachable);
    // The row's entry is gone. Its slot stays until the segment is packed.
    void kill(std::uint32_t slot) noexcept;
    void set_reachable(std::uint32_t slot, bool reachable) noexcept;

    [[nodiscard]] bool dense() const noexcept { return rows_.empty(); }
    [[nodiscard]] bool full() const noexcept { return used_ == max_rows_; }
    [[nodiscard]] std::uint32_t live_count() const noexcept { return live_count_; }
    [[nodiscard]] std::uint32_t slots() const noexcept { return lines_ * Line::kRows; }
    [[nodiscard]] std::uint32_t used() const noexcept { return used_; }
    [[nodiscard]] std::uint32_t lines() const noexcept { return lines_; }

    // No row of the segment is lower; for a dense one, the row of slot 0.
    [[nodiscard]] std::uint32_t first_row() const noexcept { return first_row_; }
    // No row of the segment is as high, and none below is in a later segment.
    [[nodiscard]] std::uint32_t rows_end() const noexcept { return rows_end_; }
    // The slot of a row that is in the segment.
    [[nodiscard]] std::uint32_t slot_of(std::uint32_t row) const noexcept {
        return dense() ? row - first_row_ : packed_slot_of(row);
    }
    [[nodiscard]] std::uint32_t row_of(std::uint32_t slot) const noexcept {
        return dense() ? first_row_ + slot : rows_[slot];
    }
    // For a live slot. A search that has its row needs no entry.
    [[nodiscard]] RecordPlace record_of(std::uint32_t slot) const noexcept {
        return records_[slot];
    }
    // Where that stands.
    [[nodiscard]] const RecordPlace* record_at(std::uint32_t slot) const noexcept {
        return &records_[slot];
    }
    [[nodiscard]] bool reachable(std::uint32_t slot) const noexcept {
        return bit_row(kReachableRow)[slot / Line::kRows].test(slot % Line::kRows);
    }
    // Moves those of some slots that are reachable to the front and returns their number.
    [[nodiscard]] std::size_t reachable_of(std::span<std::uint32_t> slots) const noexcept {
        std::size_t kept = 0;
        for (const std::uint32_t slot : slots) {  // without a branch that nobody could foretell
            slots[kept] = slot;
            kept += reachable(slot) ? 1 : 0;
        }
        return kept;
    }
    [[nodiscard]] bool in_column(std::size_t column, std::uint32_t slot) const noexcept {
        return this->column(column)[slot / Line::kRows].test(slot % Line::kRows);
    }

    [[nodiscard]] std::uint32_t stretches() const noexcept {
        return (lines_ + kStretchLines - 1) / kStretchLines;
    }
    // Live and reachable bits of a stretch, zero where the segment has no slots.
    [[nodiscard]] Stretch live(std::uint32_t stretch) const noexcept {
        return copy_of(bit_row(kLiveRow), stretch);
    }
    [[nodiscard]] Stretch reachable_ones(std::uint32_t stretch) const noexcept {
        return copy_of(bit_row(kReachableRow), stretch);
    }
    // What occurs in the texts of the rows from first_known() on, as many as a segment has before
    // it is packed; null when that is not known.
    [[nodiscard]] const GramFilter* grams() const noexcept { return grams_.data(); }
    [[nodiscard]] GramFilter::Places gram_places() const noexcept {
        return GramFilter::Places(first_known_);
    }
    [[nodiscard]] std::uint32_t first_known() const noexcept { return first_known_; }
    [[nodiscard]] std::uint32_t known_end() const noexcept { return first_known_ + max_rows_; }
    // The lines of slots, one bit each, in which there are rows of some parts, or such of which
    // nothing is known.
    [[nodiscard]] std::uint64_t lines_of(GramFilter::Parts parts) const noexcept;
    [[nodiscard]] const Line& reachable_line(std::uint32_t line) const noexcept {
        return bit_row(kReachableRow)[line];
    }
    // lines() lines.
    [[nodiscard]] const Line* column(std::size_t column) const noexcept {
        return bit_row(kFirstColumn + column);
    }
    // The same as one run of words, 64 slots in each.
    [[nodiscard]] const std::uint64_t* column_words(std::size_t column) const noexcept {
        return reinterpret_cast<const std::uint64_t*>(this->column(column));
    }

    // The live bits of slots 64 * word and following.
    [[nodiscard]] std::uint64_t live_word(std::uint32_t word) const noexcept {
        return bit_row(kLiveRow)[word / 8].words[word % 8];
    }
    [[nodiscard]] bool is_live(std::uint32_t slot) const noexcept {
        return (live_word(slot / 64) >> (slot % 64) & 1) != 0;
    }
    // The first slot whose row is not lower, or used().
    [[nodiscard]] std::uint32_t slot_from(std::uint32_t row) const noexcept {
        if (row <= first_row_) return 0;
        return dense() ? std::min(row - first_row_, used_) : packed_slot_of(row);
    }

    // Calls visit(slot) for every live slot in ascending order.
    template <class Visit>
    void for_each_live(Visit&& visit) const {
        for (std::uint32_t word = 0; word < slots() / 64; ++word)
            for (std::uint64_t rest = live_word(word); rest != 0; rest &= rest - 1)
                visit(word * 64 + static_cast<std::uint32_t>(std::countr_zero(rest)));
    }

    // Kept by the RowStore: its place in the order of all segments.
    std::uint32_t ordinal = 0;

private:
    friend class SegmentPacking;

    static constexpr std::size_t kLiveRow = 0;
    static constexpr std::size_t kReachableRow = 1;
    static constexpr std::size_t kFirstColumn = 2;
    static constexpr std::size_t kBitRows = kFirstColumn + TextSignature::kColumns;

    // Rows of bits lie an odd number of lines apart: at powers of two they would share the few
    // places of a cache that such addresses may take.
    static constexpr std::size_t stride(std::uint32_t lines) { return lines | 1; }
    [[nodiscard]] const Line* bit_row(std::size_t index) const noexcept {
        return bits_.get() + index * stride(lines_);
    }
    [[nodiscard]] Line* bit_row(std::size_t index) noexcept {
        return bits_.get() + index * stride(lines_);
    }
    [[nodiscard]] Stretch copy_of(const Line* row, std::uint32_t stretch) const noexcept;
    [[nodiscard]] std::uint32_t packed_slot_of(std::uint32_t row) const noexcept;
    void prepare_growth(std::size_t rows);
    void grow();
    void revive(std::uint32_t slot, bool reachable) noexcept;
    [[nodiscard]] static PageHeap::Array<Line> uncleared_bits(std::uint32_t lines);
    void clear(std::size_t row) noexcept { std::fill_n(bit_row(row), stride(lines_), Line{}); }
    // With room for as many lines of slots, a power of two, as given.
    Segment(std::uint32_t first_row, std::uint32_t max_rows, std::uint32_t lines,
            PageHeap::Array<Line> bits);

    std::uint32_t first_row_;
    std::uint32_t rows_end_;
    std::uint32_t max_rows_;
    std::uint32_t lines_;
    std::uint32_t used_ = 0;
    std::uint32_t live_count_ = 0;
    PageHeap::Array<Line> bits_;            // kBitRows rows of lines_ lines
    PageHeap::Array<Line> larger_;          // what takes its place, twice as long
    std::size_t cleared_ = 0;               // bit rows of the latter
    PageHeap::Array<RecordPlace> records_;  // one per slot
    std::vector<std::uint32_t> rows_;       // one per used slot; empty: dense
    PageArray<GramFilter> grams_;           // one, or none
    std::uint32_t first_known_;
};

}  // namespace vorrim
