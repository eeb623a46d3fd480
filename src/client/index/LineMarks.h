#pragma once
// Which rows the signatures leave, found out when the first row of a line of 512 is asked for,
// since the memory that tells of one tells of all of them. Who will ask for most lines gets several
// at once: they lie behind one another.
//
// Threads     Belongs to one step of a search, under the index lock.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "client/index/CandidatePlan.h"
#include "client/index/RowStore.h"
#include "client/index/StepBudget.h"

namespace vorrim {

class LineMarks {
public:
    // Asks for at most so many columns of each group of the plan, which does not admit all; so many
    // lines at once.
    LineMarks(const RowStore& rows, const CandidatePlan& plan, std::size_t columns,
              std::uint32_t at_once, StepBudget& budget);

    [[nodiscard]] bool has(const Segment& segment, std::uint32_t slot) {
        const std::uint32_t line = slot / Segment::Line::kRows;
        const std::uint32_t& place = places_[first_place_[segment.ordinal] + line];
        if (place == kNone) mark(segment, line);
        return lines_[place].test(slot % Segment::Line::kRows);
    }

private:
    static constexpr std::uint32_t kNone = UINT32_MAX;

    void mark(const Segment& segment, std::uint32_t line);

    const CandidatePlan& plan_;
    const std::size_t columns_;
    const std::uint32_t at_once_;
    StepBudget& budget_;
    std::vector<std::uint32_t> first_place_;  // of a segment, by its ordinal
    std::vector<std::uint32_t> places_;       // of each line in `lines_`
    std::vector<Segment::Line> lines_;
};

}  // namespace vorrim
