#include "client/index/MatchCollector.h"

#include <utility>

namespace vorrim {

bool MatchCollector::finish() {
    if (full() || !offer_named()) return false;
    // Ready, evaluated.
    return move_on() && move_on();
}

bool MatchCollector::offer_named() {
    const std::size_t count = std::exchange(name_count_, 0);
    for (std::size_t i = 0; i < count; ++i)
        if (!offer({*named_[i].record, named_[i].row})) return false;
    return true;
}

bool MatchCollector::move_on() {
    if (!evaluate()) return false;
    ready_ = offered_;
    return true;
}

// Those that are ready. False when the capacity is reached.
bool MatchCollector::evaluate() {
    while (evaluated_ < ready_) {
        const Candidate& candidate = waiting_[evaluated_++ % waiting_.size()];
        const RecordView record = candidate.record.view();
        if (!everything_ && !search_.matches(record)) continue;
        taker_.take(record);
        last_ = candidate;
        if (++count_ == capacity_) return false;
    }
    return true;
}

}  // namespace vorrim
