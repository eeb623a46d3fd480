#pragma once
// What a step of a scan works with, whichever way it goes.
#include <cstdint>

#include "client/index/CandidatePlan.h"
#include "client/index/FileTable.h"
#include "client/index/MatchCollector.h"
#include "client/index/StepBudget.h"
#include "search/Evaluator.h"
#include "search/Search.h"

namespace vorrim {

struct ScanTask {
    const FileTable& table;
    const CandidatePlan& plan;
    const Search& search;
    Evaluator& evaluator;
    bool reachable_only;
    MatchCollector& collector;
    StepBudget& budget;

    // What an evaluation costs.
    [[nodiscard]] std::uint32_t record_cost() const noexcept {
        return kRecordCost + evaluator.nodes();
    }
    // The same in the order of rows, where those of a dense plan lie behind one another.
    [[nodiscard]] std::uint32_t row_record_cost(double density) const noexcept {
        constexpr double kDense = 1.0 / 16;
        return density > kDense ? kRecordCost / 5 + evaluator.nodes() : record_cost();
    }
};

}  // namespace vorrim
