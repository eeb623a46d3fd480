#pragma once
// The walk of a search that no keyword narrows: every entry, bucket by bucket, from a place on.
//
//                ┌─ many candidates ──► by buckets: evaluated in order until there are enough
//     a sample ──┤                          │ ▲
//                │                  too few │ │ many match after all
//                │                          ▼ │
//                └─ few ──────────────► by rows: all evaluated, the first of them sorted
//
// Either way finds the same; they differ in what they cost. A search that has left the buckets does
// not return to them. One whose evaluation prints never leaves them.
//
// Threads     Belongs to one step of a search, under the index lock; its ScanState to the search.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "client/index/LineMarks.h"
#include "client/index/OpenPlaces.h"
#include "client/index/RowList.h"
#include "client/index/ScanByRows.h"
#include "client/index/ScanTask.h"

namespace vorrim {

// What a scan knows from step to step.
struct ScanState {
    enum class Way { none, buckets, rows };

    Way way = Way::none;
    bool settled = false;  // the way is not changed any more
    double density = 1;    // how many of the rows are left to evaluate, by a sample
    std::size_t columns = CandidatePlan::kColumns;  // asked of each group on the way by buckets
    // Seen so far on this way.
    double rows = 0;
    double candidates = 0;
    double matches = 0;
};

class ScanWalk {
public:
    // Judges its way whenever it has gone `rows_to_judge` rows further.
    ScanWalk(const ScanTask& task, std::uint32_t rows_to_judge, ScanState& state,
             OpenPlaces::Kept& kept)
        : task_(task), rows_to_judge_(rows_to_judge), state_(state), kept_(kept) {}

    // Offers what may match from a place on, to the end or until the collector is full. When the
    // budget is spent before, the place at which the next step goes on.
    [[nodiscard]] std::optional<BucketPlace> run(BucketPlace from);

    // For RowList::visit.
    bool rows(std::span<const std::uint32_t> run);
    bool window(std::uint32_t base, RowBlocks::Window words, std::uint32_t first);

private:
    void choose();
    void take(ScanState::Way way);
    void choose_columns();
    template <class Visit>
    void sample(Visit&& visit) const;
    [[nodiscard]] double rows_of_sample() const;
    [[nodiscard]] double candidates_of_sample(std::size_t columns) const;
    // What is to be expected when so many of the rows are candidates and match.
    [[nodiscard]] double cost_by_buckets(double candidates, double matches) const;
    [[nodiscard]] double cost_by_rows() const;

    [[nodiscard]] std::optional<BucketPlace> walk_rows(BucketPlace from);
    [[nodiscard]] std::optional<BucketPlace> walk_buckets(BucketPlace from);
    void note_progress();

    const ScanTask& task_;
    const std::uint32_t rows_to_judge_;
    ScanState& state_;
    OpenPlaces::Kept& kept_;
    // Of the walk by buckets.
    std::optional<LineMarks> marks_;
    std::uint32_t bucket_ = 0;  // which is being walked
    std::uint32_t rows_ = 0;    // since the progress was noted
    std::uint32_t candidates_ = 0;
    std::size_t wanted_ = 0;           // then
    std::optional<BucketPlace> next_;  // when the walk was left
};

}  // namespace vorrim
