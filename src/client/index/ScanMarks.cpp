#include "client/index/ScanMarks.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace vorrim {
namespace {

std::size_t count_bits(const Segment::Stretch& bits) {
    std::size_t count = 0;
    for (const Segment::Line& line : bits)
        for (const std::uint64_t word : line.words)
            count += static_cast<std::size_t>(std::popcount(word));
    return count;
}

}  // namespace

bool ScanMarks::complete(const RowStore& rows, const CandidatePlan& plan, bool reachable_only,
                         StepBudget& budget) {
    follow(rows);
    for (const auto& segment : rows.segments()) {
        OfSegment& marks = of_segment_[segment->ordinal];
        if (marks.made) continue;
        if (budget.spent()) return false;
        mark(marks, *segment, plan, reachable_only);
        budget.charge(segment->stretches() * plan.stretch_cost());
    }
    return true;
}

std::size_t ScanMarks::count() const noexcept {
    return std::accumulate(
        of_segment_.begin(), of_segment_.end(), std::size_t{0},
        [](std::size_t sum, const OfSegment& marks) { return sum + marks.count; });
}

// Lets the marks of segments that are gone go, and makes room for those of new ones.
void ScanMarks::follow(const RowStore& rows) {
    const auto& segments = rows.segments();
    if (std::equal(segments.begin(), segments.end(), of_segment_.begin(), of_segment_.end(),
                   [](const auto& segment, const OfSegment& marks) {
                       return segment->serial == marks.serial;
                   }))
        return;
    std::vector<OfSegment> followed(segments.size());
    auto before = of_segment_.begin();
    for (std::size_t at = 0; at < segments.size(); ++at) {
        const Segment& segment = *segments[at];
        while (before != of_segment_.end() && before->first_row < segment.first_row())
            ++before;
        if (before != of_segment_.end() && before->serial == segment.serial) {
            followed[at] = std::move(*before++);
        } else {
            followed[at].serial = segment.serial;
            followed[at].first_row = segment.first_row();
        }
    }
    of_segment_ = std::move(followed);
}

void ScanMarks::mark(OfSegment& marks, const Segment& segment, const CandidatePlan& plan,
                     bool reachable_only) {
    marks.made = true;
    marks.places.fill(kNone);
    const std::uint64_t possible = segment.lines_of(plan.parts(segment));
    for (std::uint32_t stretch = 0; stretch < segment.stretches(); ++stretch) {
        const std::uint64_t lines = possible >> (stretch * Segment::kStretchLines) & 0xFF;
        if (lines == 0) continue;
        if (stretch + 1 < segment.stretches()) plan.prefetch(segment, stretch + 1);
        Segment::Stretch bits =
            reachable_only ? segment.reachable_ones(stretch) : segment.live(stretch);
        for (std::uint32_t line = 0; line < bits.size(); ++line)
            if ((lines >> line & 1) == 0) bits[line] = {};
        plan.narrow(segment, stretch, bits);
        const std::size_t here = count_bits(bits);
        if (here == 0) continue;
        marks.count += here;
        marks.places[stretch] = static_cast<std::uint8_t>(marks.bits.size());
        marks.bits.push_back(bits);
    }
}

}  // namespace vorrim
