#pragma once
// The entries that the plan of a scan leaves, of all segments: one bit for each.
//
// They may be made in several steps, and be of use in later ones: whatever has changed between two
// steps, a segment that is still the same has kept its marks, and one that is not is marked anew.
// An entry that came after its segment was marked is not in them, one that left may still be.
//
// Threads     Belongs to one search, under the index lock.
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "client/index/CandidatePlan.h"
#include "client/index/RowStore.h"
#include "client/index/StepBudget.h"

namespace vorrim {

class ScanMarks {
public:
    // Marks what the plan and the asker leave of the segments that are not marked. False when the
    // budget is spent before all are.
    [[nodiscard]] bool complete(const RowStore& rows, const CandidatePlan& plan,
                                bool reachable_only, StepBudget& budget);

    // What follows needs complete marks, under the same hold of the lock.
    [[nodiscard]] std::size_t count() const noexcept;
    [[nodiscard]] bool has(const Segment& segment, std::uint32_t slot) const noexcept {
        const OfSegment& marks = of_segment_[segment.ordinal];
        const std::uint8_t place = marks.places[slot / Segment::kStretchRows];
        if (place == kNone) return false;
        const std::uint32_t bit = slot % Segment::kStretchRows;
        return marks.bits[place][bit / Segment::Line::kRows].test(bit % Segment::Line::kRows);
    }
    // Calls visit(segment, slot) for every mark, in the order of the rows.
    template <class Visit>
    void for_each(const RowStore& rows, Visit&& visit) const;

    [[nodiscard]] bool empty() const noexcept { return of_segment_.empty(); }
    void clear() noexcept { of_segment_ = {}; }

private:
    static constexpr std::uint8_t kNone = UINT8_MAX;
    static constexpr std::size_t kStretches = Segment::kMaxRows / Segment::kStretchRows;

    struct OfSegment {
        std::uint64_t serial = 0;
        std::uint32_t first_row = 0;
        bool made = false;
        std::array<std::uint8_t, kStretches> places;  // of every stretch in `bits`, or kNone
        std::vector<Segment::Stretch> bits;           // of the stretches that have any
        std::size_t count = 0;
    };

    void follow(const RowStore& rows);
    static void mark(OfSegment& marks, const Segment& segment, const CandidatePlan& plan,
                     bool reachable_only);

    std::vector<OfSegment> of_segment_;  // by its ordinal
};

template <class Visit>
void ScanMarks::for_each(const RowStore& rows, Visit&& visit) const {
    for (const auto& segment : rows.segments()) {
        const OfSegment& marks = of_segment_[segment->ordinal];
        for (std::uint32_t stretch = 0; stretch < kStretches; ++stretch) {
            if (marks.places[stretch] == kNone) continue;
            const Segment::Stretch& bits = marks.bits[marks.places[stretch]];
            for (std::uint32_t word = 0; word < Segment::kStretchRows / 64; ++word)
                for (std::uint64_t rest = bits[word / 8].words[word % 8]; rest != 0;
                     rest &= rest - 1)
                    visit(*segment, stretch * Segment::kStretchRows + word * 64 +
                                        static_cast<std::uint32_t>(std::countr_zero(rest)));
        }
    }
}

}  // namespace vorrim
