#pragma once
// All rows of the index. A row is a number given to an entry at its creation, higher than those
// before; lists of entries are lists of rows, so that ascending rows are the order of creation.
//
//     windows    row / 32768 ──► segment         (several windows may share a packed segment)
//     segments   in ascending order of their rows
//
// Rows are not given out twice. When half of a segment is dead it is packed, small ones are packed
// together with a neighbour, empty ones freed: memory follows the live rows, and no list is touched
// for it. One at a time is packed, in steps, as rows come and go. Only when the row numbers run out
// the live rows are numbered anew, in the same order.
//
// Threads     None inside; const operations may run side by side.
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "client/index/Segment.h"
#include "client/index/SegmentPacking.h"

namespace vorrim {

class RowStore {
public:
    // How often each column was set, in a sample of rows; the lower, the more it dismisses.
    using ColumnWeights = std::array<std::uint64_t, TextSignature::kColumns>;

    // Rows below row_limit, segments of segment_rows rows (a power of two, from a stretch to
    // eight).
    RowStore(std::uint32_t row_limit, std::uint32_t segment_rows) noexcept
        : row_limit_(row_limit), window_shift_(std::countr_zero(segment_rows)) {}

    // All numbers are used up: number anew before the next append.
    [[nodiscard]] bool exhausted() const noexcept { return next_row_ >= row_limit_; }
    // A row for a new entry; the marks are those of the record's texts. Raises std::bad_alloc, also
    // when exhausted, and no row has changed then.
    std::uint32_t append(RecordPlace record, const TextMarks& marks, bool reachable);
    // The row's entry is gone. Without memory for packing, segments stay as they are.
    void remove(std::uint32_t row) noexcept;
    void set_reachable(std::uint32_t row, bool reachable) noexcept;

    [[nodiscard]] const Segment& segment_of(std::uint32_t row) const noexcept {
        return *windows_[window_of(row) - first_window_];
    }
    // The record of a row's entry; nothing when it is gone.
    [[nodiscard]] std::optional<RecordPlace> find(std::uint32_t row) const noexcept;
    // In ascending order of their rows.
    [[nodiscard]] const std::vector<std::unique_ptr<Segment>>& segments() const noexcept {
        return segments_;
    }
    [[nodiscard]] std::uint32_t size() const noexcept { return live_count_; }
    [[nodiscard]] const ColumnWeights& weights() const noexcept { return weights_; }

    // Turns a row into its new number: how many live rows are lower.
    class NewNumbers {
    public:
        explicit NewNumbers(const RowStore& store);
        [[nodiscard]] std::uint32_t operator()(std::uint32_t row) const noexcept {
            const Segment& segment = store_.segment_of(row);
            return below(segment, segment.slot_of(row));
        }
        // The same for a row that may be gone, or never was.
        [[nodiscard]] std::uint32_t of_any(std::uint32_t row) const noexcept;

    private:
        [[nodiscard]] std::uint32_t below(const Segment& segment,
                                          std::uint32_t slot) const noexcept;

        const RowStore& store_;
        std::vector<std::size_t> first_word_;  // of a segment, by its ordinal
        std::vector<std::uint32_t> below_;     // live rows below each 64 slots
    };
    // The live rows under the numbers that NewNumbers said.
    [[nodiscard]] RowStore renumbered() const;
    // Calls visit(segment, slot) for every live row in ascending order.
    template <class Visit>
    void for_each_live(Visit&& visit) const {
        for (const std::unique_ptr<Segment>& segment : segments_)
            segment->for_each_live([&](std::uint32_t slot) { visit(*segment, slot); });
    }

private:
    // A segment of one line is packed into a neighbour when it is at most half full.
    static constexpr std::uint32_t kSmall = Segment::Line::kRows / 2;
    // One row in so many is weighed.
    static constexpr std::uint32_t kWeighed = 8;

    [[nodiscard]] std::uint32_t segment_rows() const noexcept { return 1u << window_shift_; }
    [[nodiscard]] std::uint32_t window_of(std::uint32_t row) const noexcept {
        return row >> window_shift_;
    }
    [[nodiscard]] Segment& segment_with(std::uint32_t row) noexcept {
        return *windows_[window_of(row) - first_window_];
    }
    void tidy(Segment& segment) noexcept;
    [[nodiscard]] bool closed(const Segment& segment) const noexcept;
    // Begins to replace the segment at `ordinal` (and its successor) by their packed form.
    void pack(std::size_t ordinal, bool with_successor) noexcept;
    void go_on_packing() noexcept;
    void drop(std::size_t ordinal) noexcept;
    void point_windows(const Segment& segment, Segment* to) noexcept;
    void number_from(std::size_t ordinal) noexcept;

    std::uint32_t row_limit_;
    int window_shift_;
    std::uint32_t next_row_ = 0;
    std::uint32_t live_count_ = 0;
    std::uint32_t first_window_ = 0;  // window of windows_[0]
    std::vector<Segment*> windows_;   // null where the window's segment is gone
    std::vector<std::unique_ptr<Segment>> segments_;
    std::optional<SegmentPacking> packing_;
    unsigned rows_since_step_ = 0;
    ColumnWeights weights_{};
};

}  // namespace vorrim
