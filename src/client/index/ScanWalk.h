#pragma once
// The walk of a search that no keyword narrows: every entry, bucket by bucket, from a place on.
//
//     marking    the signatures of all segments are asked
//       │ └────► few candidates: evaluated in the order of their rows, the matches then sorted
//       ▼
//     walking    many: the buckets are walked, dismissing by the marks, until there are enough
//
// A walk without marks asks each row's signature by itself.
//
// Threads     Belongs to one step of a search, under the index lock; its ScanState to the search.
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "client/index/CandidatePlan.h"
#include "client/index/FileTable.h"
#include "client/index/MatchCollector.h"
#include "client/index/RowList.h"
#include "client/index/ScanMarks.h"
#include "client/index/StepBudget.h"
#include "search/Search.h"

namespace vorrim {

// What a scan keeps from step to step.
struct ScanState {
    enum class Way { marking, walking, unmarked };

    Way way = Way::marking;
    ScanMarks marks;

    // Does without marks from now on.
    void forget_marks() noexcept {
        marks.clear();
        way = Way::unmarked;
    }
};

class ScanWalk {
public:
    // Before the first row of the bucket that is not lower.
    struct Place {
        std::uint32_t bucket;
        std::uint32_t row;
    };

    // At most `sort_up_to` candidates are sorted.
    ScanWalk(const FileTable& table, const CandidatePlan& plan, const Search& search,
             bool reachable_only, std::uint32_t sort_up_to, ScanState& state,
             MatchCollector& collector, StepBudget& budget)
        : table_(table),
          plan_(plan),
          search_(search),
          reachable_only_(reachable_only),
          sort_up_to_(sort_up_to),
          state_(state),
          collector_(collector),
          budget_(budget) {}

    // Offers what may match from a place on, to the end or until the collector is full. When the
    // budget is spent before, the place at which the next step goes on.
    std::optional<Place> run(Place from);

    // For RowList::visit.
    bool rows(std::span<const std::uint32_t> run);
    bool window(std::uint32_t base, RowBlocks::Window words, std::uint32_t first);

private:
    struct Found {
        std::uint32_t bucket;
        std::uint32_t row;
        std::uint32_t handle;
        RecordView record;
    };

    void sort_marked(Place from);
    std::optional<Place> walk_buckets(Place from);
    [[nodiscard]] std::span<const std::uint32_t> may_match(const Segment& segment,
                                                           std::span<std::uint32_t> slots);

    const FileTable& table_;
    const CandidatePlan& plan_;
    const Search& search_;
    const bool reachable_only_;
    const std::uint32_t sort_up_to_;
    ScanState& state_;
    MatchCollector& collector_;
    StepBudget& budget_;
    std::uint32_t bucket_ = 0;   // which is being walked
    std::optional<Place> next_;  // when the walk was left
};

}  // namespace vorrim
