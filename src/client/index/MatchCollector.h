#pragma once
// Evaluates candidates in the order in which they are offered and hands on those that match, up to
// a capacity. Works some candidates behind, so that the memory of the next ones is on its way while
// one is evaluated; the order of evaluation, and where it stops, are as if it did not. They move on
// a run at a time, each run to where the one before it was:
//
//     named ── where the record lies ──► offered ── record ──► ready ──► evaluated
//              is fetched                           is fetched
//
// Where everything matches, a run is handed on as a whole.
//
// Threads     Belongs to one search, under the index lock.
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "client/index/StepBudget.h"
#include "meta/FrozenRecord.h"
#include "search/Evaluator.h"

namespace vorrim {

// An entry that a search may find.
struct Candidate {
    RecordPlace record;
    std::uint32_t row = 0;
};

class MatchCollector {
public:
    // Who takes the matches, one or more.
    class Taker {
    public:
        virtual void take(std::span<const Candidate> matches) = 0;

    protected:
        ~Taker() = default;
    };

    // Hands on up to `capacity` (at least 1) records.
    MatchCollector(Evaluator& evaluator, std::size_t capacity, Taker& taker, StepBudget& budget)
        : evaluator_(evaluator),
          everything_(evaluator.everything()),
          capacity_(capacity),
          taker_(taker),
          budget_(budget),
          cost_(kRecordCost + evaluator.nodes()),
          run_(cost_ > kDear ? 1 : kRun) {}

    // The next candidate. False when the capacity is reached: nothing more is wanted.
    bool offer(const Candidate& candidate) {
        budget_.charge(cost_);
        candidate.record.prefetch();
        runs_[filling_][offered_++] = candidate;
        return offered_ < run_ || move_on();
    }
    // The same for one of which it stands somewhere where its record lies.
    bool offer_at(const RecordPlace* record, std::uint32_t row) {
        __builtin_prefetch(record);
        named_[name_count_++] = {record, row};
        return name_count_ < run_ || offer_named();
    }
    // Evaluates what was offered and still waits. False when the capacity is reached.
    bool finish();

    [[nodiscard]] bool full() const noexcept { return count_ >= capacity_; }
    [[nodiscard]] std::size_t wanted() const noexcept { return capacity_ - count_; }
    [[nodiscard]] std::size_t count() const noexcept { return count_; }
    // The last match; there is one.
    [[nodiscard]] const Candidate& last() const noexcept { return last_; }

private:
    static constexpr std::size_t kRun = 16;
    // Of candidates that cost more each, no runs wait behind the one that spends the budget.
    static constexpr std::uint32_t kDear = 50;

    struct Named {
        const RecordPlace* record;
        std::uint32_t row;
    };

    bool offer_named();
    bool move_on();
    bool evaluate(std::span<const Candidate> run);

    Evaluator& evaluator_;
    const bool everything_;
    const std::size_t capacity_;
    Taker& taker_;
    StepBudget& budget_;
    const std::uint32_t cost_;  // of a candidate
    const std::size_t run_;     // so many move on at once
    std::size_t count_ = 0;
    Candidate last_;
    std::size_t name_count_ = 0;
    std::size_t offered_ = 0;
    std::size_t ready_ = 0;
    std::array<Named, kRun> named_;
    std::array<std::array<Candidate, kRun>, 2> runs_;  // the offered ones, the ready ones
    std::size_t filling_ = 0;                          // which those are that are offered
};

}  // namespace vorrim
