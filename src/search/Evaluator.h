#pragma once
// What evaluates the records of one search: its tree as it stands, or, where that has many leaves,
// a WideSearch made of it.
//
// Ownership   Refers to its Search, which must outlive it unchanged. Moves, never copies.
// Threads     None inside: belongs to one search at a time.
#include <cstdint>
#include <memory>

#include "search/Search.h"
#include "search/WideSearch.h"

namespace vorrim {

class Evaluator final {
public:
    // A tree of more nodes is wide.
    static constexpr std::uint32_t kMostPlainNodes = 128;

    explicit Evaluator(const Search& search);

    [[nodiscard]] bool matches(RecordView record) {
        return wide_ != nullptr ? wide_->matches(record) : search_->matches(record);
    }
    [[nodiscard]] bool everything() const noexcept {
        return node_as<SN_All>(search_->root()) != nullptr;
    }

    // Nodes of the tree: what the evaluation of an ordinary record takes, about ten nanoseconds
    // each.
    [[nodiscard]] std::uint32_t nodes() const noexcept { return nodes_; }
    // What a long record takes beyond that, in the same unit.
    [[nodiscard]] std::uint32_t surcharge(RecordView record) const noexcept {
        constexpr std::uint32_t kOrdinary = 256;  // bytes
        const auto bytes = static_cast<std::uint32_t>(record.bytes().size());
        return wide_ != nullptr ? bytes : nodes_ * (bytes / kOrdinary);
    }

private:
    const Search* search_;
    std::uint32_t nodes_ = 0;
    std::unique_ptr<WideSearch> wide_;
};

}  // namespace vorrim
