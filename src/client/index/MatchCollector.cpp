#include "client/index/MatchCollector.h"

#include <algorithm>

namespace vorrim {

bool MatchCollector::evaluate() {
    const std::uint32_t handle = waiting_[evaluated_++ % kBehind];
    const RecordView record = table_.entry(handle).record.view();
    if (!everything_ && !search_.matches(record)) return true;
    matches_.push_back(record);
    last_ = handle;
    return !full();
}

bool MatchCollector::finish() {
    for (std::size_t at = std::max(evaluated_, offered_ - std::min(offered_, kHalfWay));
         at < offered_; ++at)
        table_.entry(waiting_[at % kBehind]).prefetch_record();
    while (!full() && evaluated_ < offered_)
        (void)evaluate();
    return !full();
}

}  // namespace vorrim
