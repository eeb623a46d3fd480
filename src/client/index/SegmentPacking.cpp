#include "client/index/SegmentPacking.h"

#include <algorithm>
#include <array>
#include <bit>
#include <utility>

namespace vorrim {
namespace {

// The fewest lines, a power of two of them, that have this many slots.
std::uint32_t lines_for(std::uint32_t slots) {
    return std::bit_ceil(
        std::max<std::uint32_t>(1, (slots + Segment::Line::kRows - 1) / Segment::Line::kRows));
}

// A packed segment's filter must be worth its memory: not be larger than the rows that it spares.
constexpr std::uint32_t kFewestForGrams = 2 * Segment::kStretchRows;

std::vector<std::uint32_t> live_slots(const Segment* segment) {
    std::vector<std::uint32_t> slots;
    if (segment == nullptr) return slots;
    slots.reserve(segment->live_count());
    segment->for_each_live([&](std::uint32_t slot) { slots.push_back(slot); });
    return slots;
}

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

SegmentPacking::SegmentPacking(Segment& segment, Segment* successor)
    : from_{From{&segment, live_slots(&segment)}, From{successor, live_slots(successor)}} {
    const std::size_t rows = from_[0].slots.size() + from_[1].slots.size();
    const std::uint32_t lines = lines_for(static_cast<std::uint32_t>(rows));
    packed_.reset(
        new Segment(segment.first_row_, segment.max_rows_, lines, Segment::uncleared_bits(lines)));
    packed_->rows_end_ = (successor != nullptr ? *successor : segment).rows_end_;
    packed_->used_ = static_cast<std::uint32_t>(rows);
    packed_->rows_.reserve(rows);
    RecordPlace* record = packed_->records_.get();
    for (const From& from : from_)
        for (const std::uint32_t slot : from.slots) {
            packed_->rows_.push_back(from.segment->row_of(slot));
            *record++ = from.segment->record_of(slot);
        }
}

bool SegmentPacking::step() noexcept {
    static_assert(TextSignature::kColumns % kGroup == 0);
    if (next_row_ == Segment::kBitRows) return false;
    for (std::size_t row = next_row_; row < next_row_ + kGroup; ++row)
        packed_->clear(row);
    move_group(from_[0], next_row_, 0);
    move_group(from_[1], next_row_, static_cast<std::uint32_t>(from_[0].slots.size()));
    next_row_ += kGroup;
    return true;
}

// Word by word: 64 slots of the group are turned into 64 slots' own words, the live ones are put
// down behind one another, from slot `to` on, and turned back when 64 are together.
void SegmentPacking::move_group(const From& from, std::size_t first_row,
                                std::uint32_t to) noexcept {
    std::array<std::uint64_t, kGroup> source;
    std::array<std::uint64_t, kGroup> target{};
    const auto put_down = [&](std::uint32_t word) {
        transpose(target);
        for (std::size_t row = 0; row < kGroup; ++row)
            packed_->bit_row(first_row + row)[word / 8].words[word % 8] |= target[row];
        target.fill(0);
    };
    std::uint32_t source_word = UINT32_MAX;
    for (const std::uint32_t slot : from.slots) {
        if (slot / 64 != source_word) {
            source_word = slot / 64;
            for (std::size_t row = 0; row < kGroup; ++row)
                source[row] = std::as_const(*from.segment)
                                  .bit_row(first_row + row)[source_word / 8]
                                  .words[source_word % 8];
            transpose(source);
        }
        target[to % 64] = source[slot % 64];
        if (++to % 64 == 0) put_down(to / 64 - 1);
    }
    if (to % 64 != 0) put_down(to / 64);
}

std::unique_ptr<Segment> SegmentPacking::finish() noexcept {
    packed_->clear(Segment::kLiveRow);
    packed_->clear(Segment::kReachableRow);
    std::uint32_t to = 0;
    for (const From& from : from_)
        for (const std::uint32_t slot : from.slots) {
            if (from.segment->is_live(slot)) packed_->revive(to, from.segment->reachable(slot));
            ++to;
        }
    if (packed_->used_ >= kFewestForGrams) {
        Segment* known = &segment();
        if (successor() != nullptr && successor()->live_count() > known->live_count())
            known = successor();
        packed_->grams_ = std::move(known->grams_);
        packed_->first_known_ = known->first_known_;
    }
    return std::move(packed_);
}

}  // namespace vorrim
