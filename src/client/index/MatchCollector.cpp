#include "client/index/MatchCollector.h"

#include <algorithm>

namespace vorrim {

bool MatchCollector::finish() {
    if (full()) return false;
    while (names_read_ < name_count_)
        if (!offer(*named_[names_read_++ % kNamed])) return false;
    for (std::size_t at = std::max(evaluated_, offered_ - std::min(offered_, kHalfWay));
         at < offered_; ++at)
        table_.entry(waiting_[at % kBehind]).prefetch_record();
    while (!full() && evaluated_ < offered_)
        (void)evaluate();
    return !full();
}

}  // namespace vorrim
