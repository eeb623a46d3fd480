#include "client/index/Segment.h"

#include <algorithm>

#include "client/index/row_search.h"

namespace vorrim {

Segment::Segment(std::uint32_t first_row, std::uint32_t max_rows, std::uint32_t lines,
                 PageHeap::Array<Line> bits)
    : first_row_(first_row),
      rows_end_(first_row + max_rows),
      max_rows_(max_rows),
      lines_(lines),
      bits_(std::move(bits)),
      records_(PageHeap::array<RecordPlace>(lines * Line::kRows)),
      first_known_(first_row) {}

Segment::Segment(std::uint32_t first_row, std::uint32_t max_rows)
    : Segment(first_row, max_rows, 1, uncleared_bits(1)) {
    for (std::size_t row = 0; row < kBitRows; ++row)
        clear(row);
}

PageHeap::Array<Segment::Line> Segment::uncleared_bits(std::uint32_t lines) {
    return PageHeap::array<Line>(kBitRows * stride(lines));
}

// The memory that it grows into is cleared row by row while its last half fills: new pages of
// memory cost more than all else, and everybody waits for whoever publishes.
void Segment::prepare_growth(std::size_t rows) {
    if (!larger_) larger_ = uncleared_bits(lines_ * 2);
    const std::size_t row_length = stride(lines_ * 2);
    for (; cleared_ < rows; ++cleared_)
        std::fill_n(larger_.get() + cleared_ * row_length, row_length, Line{});
}

void Segment::grow() {
    prepare_growth(kBitRows);
    const std::uint32_t lines = lines_ * 2;
    auto records = PageHeap::array<RecordPlace>(lines * Line::kRows);
    std::copy_n(records_.get(), used_, records.get());
    for (std::size_t row = 0; row < kBitRows; ++row)
        std::copy_n(bit_row(row), lines_, larger_.get() + row * stride(lines));
    bits_ = std::move(larger_);
    cleared_ = 0;
    records_ = std::move(records);
    lines_ = lines;
}

Segment::Stretch Segment::copy_of(const Line* row, std::uint32_t stretch) const noexcept {
    Stretch bits{};
    const std::uint32_t first = stretch * kStretchLines;
    std::copy_n(row + first, std::min(kStretchLines, lines_ - first), bits.begin());
    return bits;
}

std::uint32_t Segment::append(RecordPlace record, const TextMarks& marks, bool reachable) {
    if (used_ == slots()) grow();
    if (used_ >= slots() / 2 && slots() < max_rows_)
        prepare_growth(kBitRows * (used_ * 2 - slots()) / slots());
    if (!grams_) grams_ = PageArray<GramFilter>::make(1);
    const std::uint32_t slot = used_++;
    const std::uint32_t line = slot / Line::kRows;
    const std::uint32_t bit = slot % Line::kRows;
    records_[slot] = record;
    marks.signature.for_each_column(
        [&](std::size_t column) { bit_row(kFirstColumn + column)[line].set(bit); });
    grams_[0].add(slot / GramFilter::kPartRows, record.view(), marks.runs, gram_places());
    revive(slot, reachable);
    return slot;
}

void Segment::revive(std::uint32_t slot, bool reachable) noexcept {
    bit_row(kLiveRow)[slot / Line::kRows].set(slot % Line::kRows);
    if (reachable) bit_row(kReachableRow)[slot / Line::kRows].set(slot % Line::kRows);
    ++live_count_;
}

void Segment::kill(std::uint32_t slot) noexcept {
    bit_row(kLiveRow)[slot / Line::kRows].reset(slot % Line::kRows);
    bit_row(kReachableRow)[slot / Line::kRows].reset(slot % Line::kRows);
    --live_count_;
}

void Segment::set_reachable(std::uint32_t slot, bool reachable) noexcept {
    Line& line = bit_row(kReachableRow)[slot / Line::kRows];
    if (reachable)
        line.set(slot % Line::kRows);
    else
        line.reset(slot % Line::kRows);
}

std::uint32_t Segment::packed_slot_of(std::uint32_t row) const noexcept {
    return static_cast<std::uint32_t>(find_row(rows_, row));
}

std::uint64_t Segment::lines_of(GramFilter::Parts parts) const noexcept {
    static_assert(GramFilter::kPartRows == Line::kRows);
    if (dense() || parts == GramFilter::kAllParts) return parts;
    std::uint64_t lines = 0;
    const auto add = [&](std::uint32_t slot, std::uint32_t end) {
        for (; slot < end; slot = (slot / Line::kRows + 1) * Line::kRows)
            lines |= std::uint64_t{1} << (slot / Line::kRows);
    };
    add(0, slot_from(first_known_));
    for (; parts != 0; parts &= parts - 1) {
        const std::uint32_t first =
            first_known_ + static_cast<std::uint32_t>(std::countr_zero(parts) *
                                                      static_cast<int>(GramFilter::kPartRows));
        add(slot_from(first), slot_from(first + GramFilter::kPartRows));
    }
    add(slot_from(known_end()), used_);
    return lines;
}

}  // namespace vorrim
