#pragma once
// One batch of a file search on its way: what FileIndex::begin_batch begins and continue_batch goes
// on with, a step of bounded length each.
//
// Between two steps the index may change as it likes. The batch goes on at a row: what left neither
// makes it skip an entry nor visit one again, and what comes may be found or not.
//
// Ownership   Refers to its Search and to the index, which must outlive it. Moves, never copies.
// Threads     None inside: belongs to one thread, as its Search does.
// Errors      A batch that raised is not continued.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "client/index/CandidatePlan.h"
#include "client/index/OpenPlaces.h"
#include "client/index/ScanWalk.h"
#include "meta/ClientId.h"
#include "search/Evaluator.h"
#include "search/Search.h"
#include "search/UnknownOperations.h"

namespace vorrim {

class SearchBatch {
public:
    // Records that have been found so far.
    [[nodiscard]] std::uint32_t found() const noexcept { return found_; }

private:
    friend class FileIndex;
    friend class KeywordFileIndex;

    SearchBatch(Search& search, ClientId asker) : search_(&search), asker_(asker) {}

    void pause_at(OpenPlaces& places, std::uint32_t row) {
        if (place_)
            place_->kept().row = row;
        else
            place_ = std::make_unique<OpenPlaces::Place>(places, row);
    }

    Search* search_;
    ClientId asker_;
    std::optional<CandidatePlan> plan_;   // none for a search without a tree
    std::optional<Evaluator> evaluator_;  // likewise
    std::size_t capacity_ = 0;
    std::uint32_t found_ = 0;
    bool through_ = false;
    std::unique_ptr<OpenPlaces::Place> place_;  // of a keyword, once a step has not been enough
    std::uint32_t bucket_ = 0;                  // of a scan: where the place is
    ScanState scan_;
    UnknownReports reports_;
};

}  // namespace vorrim
