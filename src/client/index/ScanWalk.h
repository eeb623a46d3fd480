#pragma once
// The walk of a search that no keyword narrows: every entry, bucket by bucket, from a position on.
//
// The signatures of all segments are asked first. When they leave few candidates, those are
// evaluated in the order of their rows and the matches sorted into the order of the walk; when they
// leave many, the buckets are walked, dismissing by the bits at hand, until there are enough.
//
// Threads     Belongs to one search, under the index lock.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "client/index/CandidatePlan.h"
#include "client/index/FileTable.h"
#include "client/index/MatchCollector.h"
#include "client/index/RowList.h"
#include "meta/RecordView.h"
#include "search/Search.h"

namespace vorrim {

class ScanWalk {
public:
    // A place between entries: a bucket and an index in it.
    struct Position {
        std::uint32_t bucket;
        std::uint32_t index;
    };

    // With at most `sort_up_to` candidates the first way is taken.
    ScanWalk(const FileTable& table, const CandidatePlan& plan, const Search& search,
             bool reachable_only, std::uint32_t sort_up_to)
        : table_(table),
          plan_(plan),
          search_(search),
          reachable_only_(reachable_only),
          sort_up_to_(sort_up_to) {}

    // Collects up to `capacity` matches from a position on. Returns the position behind the last
    // one when there are as many, nothing when the end was reached first.
    std::optional<Position> run(Position from, std::size_t capacity,
                                std::vector<RecordView>& matches);

    // For RowList::visit.
    bool rows(std::span<const std::uint32_t> run);
    bool window(std::uint32_t base, RowBlocks::Window words, std::uint32_t first);

private:
    static constexpr std::uint32_t kNone = UINT32_MAX;

    struct Found {
        std::uint32_t bucket;
        std::uint32_t row;
        RecordView record;
    };

    // Marks what the plan and the asker leave of all segments. Returns how many entries that are.
    std::size_t mark_candidates();
    std::optional<Position> sort_candidates(Position from, std::size_t capacity,
                                            std::vector<RecordView>& matches) const;
    std::optional<Position> walk_buckets(Position from, std::size_t capacity,
                                         std::vector<RecordView>& matches);
    bool row(std::uint32_t row);
    [[nodiscard]] Position behind(const FileEntry& entry) const;

    const FileTable& table_;
    const CandidatePlan& plan_;
    const Search& search_;
    const bool reachable_only_;
    const std::uint32_t sort_up_to_;
    // Not marked: all entries, or all reachable ones. A segment's stretches follow one another.
    bool marked_ = false;
    std::vector<Segment::Stretch> candidates_;  // of the stretches that have any
    std::vector<std::uint32_t> places_;         // of every stretch in candidates_, or kNone
    std::vector<std::uint32_t> first_stretch_;  // of a segment, by its ordinal
    MatchCollector* collector_ = nullptr;
};

}  // namespace vorrim
