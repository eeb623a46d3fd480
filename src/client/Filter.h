#pragma once
// One filter of the settings, as the index keeps it: a file whose record matches is refused.
//
// Ownership   Owns its expression. Moves, never copies.
// Threads     Both operations are const and may run in several threads at once.
#include <string>
#include <utility>

#include "meta/RecordView.h"
#include "search/Search.h"

namespace vorrim {

class Filter final {
public:
    explicit Filter(Search search) noexcept : search_(std::move(search)) {}

    [[nodiscard]] bool matches(RecordView record) const;

    // Replaces the buffer by the printed form of the expression.
    void print(std::string& buffer) const;

private:
    Search search_;
};

}  // namespace vorrim
