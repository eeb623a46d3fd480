#pragma once
// A scan in the order of the rows, for what matches seldom: memory is met in the order in which it
// was filled, stretches are passed over, and the matches are sorted at the end.
//
//     rows ──► what the signatures leave ──► fetched, evaluated ──► the first matches, a heap
//                                                                            │ when all are seen
//                                                  MatchCollector ◄── sorted ┘
//
// A match is kept as a place, and evaluated again when it is handed over: whatever has left or
// changed since is not among what is found.
//
// Threads     Belongs to one step of a search, under the index lock.
#include <cstdint>
#include <optional>
#include <vector>

#include "client/index/OpenPlaces.h"
#include "client/index/ScanTask.h"

namespace vorrim {

class ScanByRows {
public:
    // For entries from `from` on; goes on with what is kept. An evaluation costs so much.
    ScanByRows(const ScanTask& task, std::uint32_t record_cost, BucketPlace from,
               OpenPlaces::Kept& kept)
        : task_(task),
          record_cost_(record_cost),
          from_(from),
          kept_(kept),
          next_row_(kept.looked_at) {}

    enum class Look {
        more,     // one segment less
        paused,   // the budget is spent
        through,  // all have been looked at
    };
    // At the next segment, or the rest of it.
    [[nodiscard]] Look look();
    // Offers what matched, when all have been looked at. When the budget is spent before, the place
    // of the next; when others were dropped and there are not enough, the place of the first of
    // those, with everything to be looked at again.
    [[nodiscard]] std::optional<BucketPlace> hand_over();

    // By this step.
    [[nodiscard]] std::uint64_t rows_seen() const noexcept { return rows_seen_; }
    [[nodiscard]] std::uint64_t candidates_seen() const noexcept { return candidates_seen_; }
    [[nodiscard]] std::uint64_t matches_seen() const noexcept { return matches_seen_; }

private:
    // False when the budget is spent before all is done.
    [[nodiscard]] bool look_at(const Segment& segment);
    [[nodiscard]] bool gather(const Segment& segment, std::uint64_t lines, std::uint32_t first);
    [[nodiscard]] bool evaluate_gathered();
    void keep(BucketPlace match);

    const ScanTask& task_;
    const std::uint32_t record_cost_;
    const BucketPlace from_;
    OpenPlaces::Kept& kept_;
    std::uint32_t next_row_;  // below which all are evaluated, or gathered
    std::vector<Candidate> gathered_;
    std::uint64_t rows_seen_ = 0;
    std::uint64_t candidates_seen_ = 0;
    std::uint64_t matches_seen_ = 0;
};

}  // namespace vorrim
