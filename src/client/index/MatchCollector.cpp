#include "client/index/MatchCollector.h"

#include <algorithm>
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
    filling_ = 1 - filling_;
    return evaluate({runs_[filling_].data(), std::exchange(ready_, std::exchange(offered_, 0))});
}

// False when the capacity is reached.
bool MatchCollector::evaluate(std::span<const Candidate> run) {
    const auto take = [this](std::span<const Candidate> matches) {
        taker_.take(matches);
        last_ = matches.back();
        count_ += matches.size();
        return !full();
    };
    if (everything_) return run.empty() || take(run.first(std::min(run.size(), wanted())));
    for (std::size_t i = 0; i < run.size(); ++i) {
        const RecordView record = run[i].record.view();
        budget_.charge(evaluator_.surcharge(record));
        if (evaluator_.matches(record) && !take(run.subspan(i, 1))) return false;
    }
    return true;
}

}  // namespace vorrim
