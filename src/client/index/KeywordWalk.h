#pragma once
// The walk of a keyword search over one keyword's list: in order, from a row on, dismissing by
// signature what cannot match, until the work of a step is done.
//
//     list ──► runs of rows ──► segment by segment:  rows & reachable & plan ──► MatchCollector
//
// Threads     Belongs to one search, under the index lock.
#include <cstdint>
#include <optional>
#include <span>

#include "client/index/CandidatePlan.h"
#include "client/index/FileTable.h"
#include "client/index/MatchCollector.h"
#include "client/index/RowList.h"
#include "client/index/Segment.h"
#include "client/index/StepBudget.h"

namespace vorrim {

class KeywordWalk {
public:
    KeywordWalk(const FileTable& table, const CandidatePlan& plan, bool reachable_only,
                MatchCollector& collector, StepBudget& budget)
        : table_(table),
          plan_(plan),
          reachable_only_(reachable_only),
          collector_(collector),
          budget_(budget) {}

    // Visits the rows of the list that are not lower, to its end or until the collector is full.
    // When the budget is spent before, the row at which the next step goes on.
    std::optional<std::uint32_t> run(const RowList& list, std::uint32_t from);

    // For RowList::visit.
    bool rows(std::span<const std::uint32_t> run);
    bool window(std::uint32_t base, RowBlocks::Window words, std::uint32_t first);

private:
    static constexpr std::uint32_t kCostAtOnce = 10;

    bool may_be_in(const Segment& segment, std::uint32_t stretch);
    std::uint32_t next_possible(const Segment& from, std::uint32_t stretch);
    bool offer(const Segment& segment, std::uint32_t stretch, std::span<std::uint32_t> slots);
    bool narrowed(const Segment& segment, std::uint32_t stretch, Segment::Stretch& bits);
    bool offer(const Segment& segment, std::uint32_t slot) {
        if (budget_.spent()) {
            next_ = segment.row_of(slot);
            return false;
        }
        return collector_.offer(segment.handle_of(slot));
    }

    const FileTable& table_;
    const CandidatePlan& plan_;
    const bool reachable_only_;
    MatchCollector& collector_;
    StepBudget& budget_;
    std::optional<std::uint32_t> next_;  // when the budget is spent
    const Segment* asked_ = nullptr;     // whose stretches are at hand
    GramFilter::Stretches stretches_ = 0;
};

}  // namespace vorrim
