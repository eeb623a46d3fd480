#pragma once
// A search among the clients on its way: what ClientTable::match_clients goes on with, a step of
// bounded length each. Between two steps clients come and go: nobody who stays is skipped or met
// twice.
//
// Ownership   Refers to its Search and to the table, which must outlive it. Moves, never copies.
// Threads     None inside: belongs to one thread.
#include <cstdint>

#include "client/ClientRoll.h"
#include "search/Evaluator.h"
#include "search/UnknownOperations.h"

namespace vorrim {

class ClientMatches final {
public:
    ClientMatches(const Search& search, std::int32_t limit)
        : evaluator_(search), limit_(limit), asked_(search.root()) {}

    // Clients that have been found so far.
    [[nodiscard]] std::int32_t found() const noexcept { return found_; }

private:
    friend class ClientTable;

    Evaluator evaluator_;
    std::int32_t limit_;
    std::int32_t found_ = 0;
    TextLook asked_;
    std::uint64_t next_ = 0;  // who arrived earlier has been visited
    UnknownReports reports_;
};

}  // namespace vorrim
