#include "client/index/LineMarks.h"

#include <algorithm>

namespace vorrim {

LineMarks::LineMarks(const RowStore& rows, const CandidatePlan& plan, std::size_t columns,
                     std::uint32_t at_once, StepBudget& budget)
    : plan_(plan), columns_(columns), at_once_(at_once), budget_(budget) {
    std::uint32_t lines = 0;
    first_place_.reserve(rows.segments().size());
    for (const auto& segment : rows.segments()) {
        first_place_.push_back(lines);
        lines += segment->lines();
    }
    places_.assign(lines, kNone);
    if (at_once_ > 1) lines_.reserve(lines);
}

void LineMarks::mark(const Segment& segment, std::uint32_t line) {
    const std::uint32_t first = line / at_once_ * at_once_;
    const std::uint32_t end = std::min(segment.lines(), first + at_once_);
    std::uint32_t* const places = places_.data() + first_place_[segment.ordinal];
    if (at_once_ > 1 && end < segment.lines())
        plan_.prefetch(segment, end / Segment::kStretchLines);
    for (line = first; line < end; ++line) {
        Segment::Line& bits = lines_.emplace_back();
        bits.words.fill(~std::uint64_t{0});
        plan_.narrow(segment, line, bits, columns_);
        places[line] = static_cast<std::uint32_t>(lines_.size() - 1);
        budget_.charge(plan_.line_cost(columns_));
    }
}

}  // namespace vorrim
