#pragma once
// Evaluates candidates in the order in which they are offered and hands on those that match, up to
// a capacity. Works some candidates behind, so that the memory of the next ones is on its way while
// one is evaluated; the order of evaluation, and where it stops, are as if it did not.
//
//     named ── handle is fetched ──► offered ── entry is fetched ──► half way ── record is
//     fetched ──► evaluated
//
// Threads     Belongs to one search, under the index lock.
#include <array>
#include <cstddef>
#include <cstdint>

#include "client/index/FileTable.h"
#include "client/index/StepBudget.h"
#include "meta/RecordView.h"
#include "search/Search.h"

namespace vorrim {

class MatchCollector {
public:
    // Who takes the matches.
    class Taker {
    public:
        virtual void take(RecordView record) = 0;

    protected:
        ~Taker() = default;
    };

    // Hands on up to `capacity` (at least 1) records. Each candidate costs the step so much of its
    // budget.
    MatchCollector(const FileTable& table, const Search& search, std::size_t capacity, Taker& taker,
                   StepBudget& budget, std::uint32_t cost)
        : table_(table),
          search_(search),
          everything_(node_as<SN_All>(search.root()) != nullptr),
          capacity_(capacity),
          taker_(taker),
          budget_(budget),
          cost_(cost) {}

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
    // The same for one whose handle stands somewhere.
    bool offer_at(const std::uint32_t* handle) {
        __builtin_prefetch(handle);
        named_[name_count_++ % kNamed] = handle;
        return name_count_ - names_read_ < kNamed || offer(*named_[names_read_++ % kNamed]);
    }
    // Evaluates what was offered and still waits. False when the capacity is reached.
    bool finish();
    // A match that has been evaluated already; it comes behind those before.
    void take(std::uint32_t handle, RecordView record) {
        taker_.take(record);
        ++count_;
        last_ = handle;
    }

    [[nodiscard]] bool full() const noexcept { return count_ >= capacity_; }
    [[nodiscard]] std::size_t wanted() const noexcept { return capacity_ - count_; }
    [[nodiscard]] std::size_t count() const noexcept { return count_; }
    // The entry of the last match; there is one.
    [[nodiscard]] const FileEntry& last() const noexcept { return table_.entry(last_); }

private:
    static constexpr std::size_t kNamed = 8;
    static constexpr std::size_t kBehind = 32;
    static constexpr std::size_t kHalfWay = kBehind / 2;

    // The one that waits longest. False when the capacity is reached.
    bool evaluate() {
        const std::uint32_t handle = waiting_[evaluated_++ % kBehind];
        const RecordView record = table_.entry(handle).record.view();
        if (everything_ || search_.matches(record)) take(handle, record);
        return !full();
    }

    const FileTable& table_;
    const Search& search_;
    const bool everything_;
    const std::size_t capacity_;
    Taker& taker_;
    StepBudget& budget_;
    const std::uint32_t cost_;
    std::size_t count_ = 0;
    std::uint32_t last_ = FileTable::kNone;
    std::size_t name_count_ = 0;
    std::size_t names_read_ = 0;
    std::size_t offered_ = 0;
    std::size_t evaluated_ = 0;
    std::array<const std::uint32_t*, kNamed> named_;
    std::array<std::uint32_t, kBehind> waiting_;
};

}  // namespace vorrim
