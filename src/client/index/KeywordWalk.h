#pragma once
// The walk of a keyword search over one keyword's list: in order, from a row on, dismissing by
// signature what cannot match, until the work of a step is done.
//
//     list ──► parts of 512 rows in which a match may be ──► rows & reachable & plan ──► collector
//                └─ what is needed of them is fetched, some parts ahead ─┘
//
// A list of a few rows is not worth a plan, and some searches have none: all that are reachable, if
// the asker needs that, go to the collector.
//
// Threads     Belongs to one search, under the index lock.
#include <array>
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
    using Run = RowBlocks::Run;

    static constexpr std::uint32_t kFew = 32;
    static constexpr std::uint32_t kPartRows = GramFilter::kPartRows;
    static constexpr std::size_t kPartsAhead = 8;  // a power of two
    static constexpr std::uint32_t kSegmentsAhead = 8;
    static constexpr std::uint32_t kPartsCost = 20;   // of a segment
    static constexpr std::uint32_t kWindowCost = 10;  // whose rows are asked whether reachable
    static constexpr std::uint32_t kRowsOfAUnit = 4;  // that are asked this, or for one column

    // The rows of a list in one part.
    struct Part {
        const Segment* segment;
        std::uint32_t first;                  // row of the part
        std::uint32_t from;                   // no row here is lower, all before are
        std::span<const std::uint32_t> rows;  // among which they are
        std::size_t at;                       // about where
        const std::uint64_t* bits;            // or these, if not null
    };

    bool reachable_rows(std::span<const std::uint32_t> run);
    bool walk_parts(const RowList& list);
    bool meet(const Run& run);
    bool meet(const Run& run, const Segment& segment, std::uint32_t from, std::uint32_t end);
    bool meet_all(const Run& run, const Segment& segment, std::uint32_t from, std::uint32_t end);
    bool meet_known(const Run& run, const Segment& segment, std::uint32_t from, std::uint32_t end);
    bool meet_most(const Run& run, const Segment& segment, std::uint32_t from, std::uint32_t end);
    template <class Possible>
    bool meet_rows(const Run& run, const Segment& segment, std::uint32_t from, std::uint32_t end,
                   Possible&& possible);
    [[nodiscard]] static Part part_at(const Run& run, const Segment& segment, std::uint32_t first);
    [[nodiscard]] GramFilter::Parts parts_of(const Segment& segment);
    bool push(const Part& part);
    bool drain();
    bool look_at(const Part& part);
    bool offer_line(const Segment& segment, std::uint32_t first, Segment::Line rows);
    bool offer_packed(const Segment& segment, std::uint32_t first, const Segment::Line& rows);
    bool offer_slots(const Segment& segment, std::span<std::uint32_t> slots);
    bool offer(std::uint32_t row, const RecordPlace* record) {
        if (budget_.spent() && row > from_) {
            next_ = row;
            return false;
        }
        return collector_.offer_at(record, row);
    }

    const FileTable& table_;
    const CandidatePlan& plan_;
    const bool reachable_only_;
    MatchCollector& collector_;
    StepBudget& budget_;
    std::uint32_t from_ = 0;
    std::optional<std::uint32_t> next_;  // when the budget is spent

    std::uint32_t ordinal_ = 0;       // of the segment that was met last
    const Segment* asked_ = nullptr;  // whose parts are at hand
    GramFilter::Parts parts_ = 0;
    std::array<Part, kPartsAhead> waiting_;
    std::size_t pushed_ = 0;
    std::size_t popped_ = 0;
};

}  // namespace vorrim
