#include "client/index/Segment.h"

#include <algorithm>

#include "client/index/row_search.h"

namespace vorrim {
namespace {

// The fewest lines, a power of two of them, that have this many slots.
std::uint32_t lines_for(std::uint32_t slots) {
    return std::bit_ceil(
        std::max<std::uint32_t>(1, (slots + Segment::Line::kRows - 1) / Segment::Line::kRows));
}

// A packed segment's filter must be worth its memory: not be larger than the rows that it spares.
constexpr std::uint32_t kFewestForGrams = 2 * Segment::kStretchRows;

// Turns a square of 64 words by 64 bits about its diagonal.
void transpose(std::array<std::uint64_t, 64>& square) noexcept {
    std::uint64_t mask = 0x00000000FFFFFFFF;
    for (std::size_t width = 32; width != 0; width /= 2, mask ^= mask << width)
        for (std::size_t row = 0; row < 64; row = (row + width + 1) & ~width) {
            const std::uint64_t swap = (square[row] >> width ^ square[row + width]) & mask;
            square[row] ^= swap << width;
            square[row + width] ^= swap;
        }
}

}  // namespace

Segment::Segment(std::uint32_t first_row, std::uint32_t max_rows, std::uint32_t lines)
    : first_row_(first_row),
      rows_end_(first_row + max_rows),
      max_rows_(max_rows),
      lines_(lines),
      bits_(std::make_unique<Line[]>(kBitRows * stride(lines))),
      handles_(std::make_unique_for_overwrite<std::uint32_t[]>(lines * Line::kRows)),
      first_known_(first_row) {}

// The memory that it will grow into is cleared bit by bit while its last half fills: new pages of
// memory cost more than all else, and everybody waits for whoever publishes.
void Segment::prepare_growth() {
    const std::size_t row_length = stride(lines_ * 2);
    if (!larger_) larger_ = std::make_unique_for_overwrite<Line[]>(kBitRows * row_length);
    const std::size_t due = kBitRows * (2 * used_ - slots() + 2) / slots();
    for (; cleared_ < std::min(due, kBitRows); ++cleared_)
        std::fill_n(larger_.get() + cleared_ * row_length, row_length, Line{});
}

void Segment::grow() {
    const std::uint32_t lines = lines_ * 2;
    auto handles = std::make_unique_for_overwrite<std::uint32_t[]>(lines * Line::kRows);
    std::copy_n(handles_.get(), used_, handles.get());
    for (std::size_t row = 0; row < kBitRows; ++row)
        std::copy_n(bit_row(row), lines_, larger_.get() + row * stride(lines));
    bits_ = std::move(larger_);
    cleared_ = 0;
    handles_ = std::move(handles);
    lines_ = lines;
}

Segment::Stretch Segment::copy_of(const Line* row, std::uint32_t stretch) const noexcept {
    Stretch bits{};
    const std::uint32_t first = stretch * kStretchLines;
    std::copy_n(row + first, std::min(kStretchLines, lines_ - first), bits.begin());
    return bits;
}

std::uint32_t Segment::append(std::uint32_t handle, const TextSignature& signature, bool reachable,
                              RecordView record) {
    if (used_ == slots()) grow();
    if (used_ >= slots() / 2 && slots() < max_rows_) prepare_growth();
    if (!grams_) grams_ = std::make_unique<GramFilter>();
    const std::uint32_t slot = used_++;
    const std::uint32_t line = slot / Line::kRows;
    const std::uint32_t bit = slot % Line::kRows;
    handles_[slot] = handle;
    bit_row(kLiveRow)[line].set(bit);
    if (reachable) bit_row(kReachableRow)[line].set(bit);
    signature.for_each_column(
        [&](std::size_t column) { bit_row(kFirstColumn + column)[line].set(bit); });
    grams_->add(slot / GramFilter::kPartRows, record, gram_places());
    ++live_count_;
    return slot;
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

TextSignature Segment::signature_of(std::uint32_t slot) const noexcept {
    TextSignature signature;
    for (std::size_t column = 0; column < TextSignature::kColumns; ++column)
        if (in_column(column, slot)) signature.set(column);
    return signature;
}

std::unique_ptr<Segment> Segment::packed(Segment* successor) {
    const std::uint32_t live = live_count_ + (successor ? successor->live_count_ : 0);
    auto result = std::make_unique<Segment>(first_row_, max_rows_, lines_for(live));
    result->rows_end_ = successor ? successor->rows_end_ : rows_end_;
    result->rows_.reserve(live);
    result->append_live_of(*this);
    if (successor) result->append_live_of(*successor);
    if (live >= kFewestForGrams) {
        Segment& larger = successor && successor->live_count_ > live_count_ ? *successor : *this;
        result->grams_ = std::move(larger.grams_);
        result->first_known_ = larger.first_known_;
    }
    return result;
}

// Word by word: 64 slots of a group of 64 bit rows are turned into 64 slots' own words, the live
// ones are put down behind one another, and turned back when 64 are together.
void Segment::append_live_of(const Segment& other) {
    std::vector<std::uint32_t> live;
    live.reserve(other.live_count_);
    other.for_each_live([&](std::uint32_t slot) { live.push_back(slot); });
    for (std::size_t i = 0; i < live.size(); ++i) {
        rows_.push_back(other.row_of(live[i]));
        handles_[used_ + i] = other.handles_[live[i]];
    }
    constexpr std::size_t kGroup = 64;
    std::array<std::uint64_t, kGroup> from;
    std::array<std::uint64_t, kGroup> to;
    for (std::size_t group = 0; group < kBitRows; group += kGroup) {
        const std::size_t bit_rows = std::min(kGroup, kBitRows - group);
        const auto put_down = [&](std::size_t word) {
            transpose(to);
            for (std::size_t row = 0; row < bit_rows; ++row)
                bit_row(group + row)[word / 8].words[word % 8] |= to[row];
            to.fill(0);
        };
        std::size_t at = used_;
        std::size_t from_word = SIZE_MAX;
        to.fill(0);
        for (const std::uint32_t slot : live) {
            if (slot / 64 != from_word) {
                from_word = slot / 64;
                from.fill(0);
                for (std::size_t row = 0; row < bit_rows; ++row)
                    from[row] = other.bit_row(group + row)[from_word / 8].words[from_word % 8];
                transpose(from);
            }
            to[at % 64] = from[slot % 64];
            if (++at % 64 == 0) put_down(at / 64 - 1);
        }
        if (at % 64 != 0) put_down(at / 64);
    }
    used_ += static_cast<std::uint32_t>(live.size());
    live_count_ += static_cast<std::uint32_t>(live.size());
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

std::size_t Segment::heap_bytes() const noexcept {
    return (grams_ ? sizeof(GramFilter) : 0) + kBitRows * stride(lines_) * sizeof(Line) +
           (larger_ ? kBitRows * stride(lines_ * 2) * sizeof(Line) : 0) +
           slots() * sizeof(std::uint32_t) + rows_.capacity() * sizeof(std::uint32_t);
}

}  // namespace vorrim
