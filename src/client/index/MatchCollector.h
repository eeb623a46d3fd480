#pragma once
// Evaluates candidates in the order in which they are offered and collects those that match, up to
// a capacity. Works some candidates behind, so that the memory of the next ones is on its way while
// one is evaluated; the order of evaluation, and where it stops, are as if it did not.
//
//     offered ── entry is fetched ──► half way ── record is fetched ──► evaluated
//
// Threads     Belongs to one search, under the index lock.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "client/index/FileTable.h"
#include "client/index/StepBudget.h"
#include "meta/RecordView.h"
#include "search/Search.h"

namespace vorrim {

class MatchCollector {
public:
    // Collects into `matches`, which is empty, until it has `capacity` (at least 1) records. Each
    // candidate costs the step so much of its budget.
    MatchCollector(const FileTable& table, const Search& search, std::size_t capacity,
                   std::vector<RecordView>& matches, StepBudget& budget, std::uint32_t cost)
        : table_(table),
          search_(search),
          everything_(node_as<SN_All>(search.root()) != nullptr),
          capacity_(capacity),
          matches_(matches),
          budget_(budget),
          cost_(cost) {}

    // There are at most so many candidates.
    void expect(std::size_t candidates) { matches_.reserve(std::min(wanted(), candidates)); }
    // The next candidate. False when the capacity is reached: nothing more is wanted.
    bool offer(std::uint32_t handle) {
        budget_.charge(cost_);
        if (offered_ - evaluated_ == kBehind && !evaluate()) return false;
        __builtin_prefetch(&table_.entry(handle));
        waiting_[offered_++ % kBehind] = handle;
        if (offered_ - evaluated_ > kHalfWay)
            table_.entry(waiting_[(offered_ - kHalfWay - 1) % kBehind]).prefetch_record();
        return true;
    }
    // Evaluates what was offered and still waits. False when the capacity is reached.
    bool finish();
    // A match that has been evaluated already; it comes behind those before.
    void take(std::uint32_t handle, RecordView record) {
        matches_.push_back(record);
        last_ = handle;
    }

    [[nodiscard]] bool full() const noexcept { return matches_.size() >= capacity_; }
    [[nodiscard]] std::size_t wanted() const noexcept { return capacity_ - matches_.size(); }
    // The entry of the last match; there is one.
    [[nodiscard]] const FileEntry& last() const noexcept { return table_.entry(last_); }

private:
    static constexpr std::size_t kBehind = 32;
    static constexpr std::size_t kHalfWay = kBehind / 2;

    // The one that waits longest. False when the capacity is reached.
    bool evaluate();

    const FileTable& table_;
    const Search& search_;
    const bool everything_;
    const std::size_t capacity_;
    std::vector<RecordView>& matches_;
    StepBudget& budget_;
    const std::uint32_t cost_;
    std::array<std::uint32_t, kBehind> waiting_;
    std::size_t offered_ = 0;
    std::size_t evaluated_ = 0;
    std::uint32_t last_ = FileTable::kNone;
};

}  // namespace vorrim
