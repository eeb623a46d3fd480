#include "client/index/MatchCollector.h"

#include <utility>

namespace vorrim {

bool MatchCollector::finish() {
    const std::size_t count = std::exchange(waiting_count_, 0);
    for (std::size_t i = 0; i < count; ++i)
        table_.entry(waiting_[i]).prefetch_record();
    for (std::size_t i = 0; i < count && !full(); ++i) {
        const RecordView record = table_.entry(waiting_[i]).record.view();
        if (!everything_ && !search_.matches(record)) continue;
        matches_.push_back(record);
        last_ = waiting_[i];
    }
    return !full();
}

}  // namespace vorrim
