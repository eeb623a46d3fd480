#include "client/index/MatchCollector.h"

#include <utility>

namespace vorrim {

bool MatchCollector::finish() {
    if (full() || !offer_named()) return false;
    // Half way, ready, evaluated.
    return move_on() && move_on() && move_on();
}

bool MatchCollector::offer_named() {
    const std::size_t count = std::exchange(name_count_, 0);
    for (std::size_t i = 0; i < count; ++i)
        if (!offer(*named_[i])) return false;
    return true;
}

bool MatchCollector::move_on() {
    if (!evaluate()) return false;
    for (; ready_ < half_way_; ++ready_)
        waiting_[ready_ % waiting_.size()]->prefetch_record();
    half_way_ = offered_;
    return true;
}

// Those that are ready. False when the capacity is reached.
bool MatchCollector::evaluate() {
    while (evaluated_ < ready_) {
        const FileEntry& entry = *waiting_[evaluated_++ % waiting_.size()];
        const RecordView record = entry.record.view();
        if (!everything_ && !search_.matches(record)) continue;
        taker_.take(record);
        last_ = &entry;
        if (++count_ == capacity_) return false;
    }
    return true;
}

}  // namespace vorrim
