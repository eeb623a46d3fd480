#pragma once
// A tree of many leaves, whose evaluation looks at each byte of a record once or twice, however
// many texts are asked for. One by one, tens of thousands of leaves would go through all texts of a
// record that is made for it, for a fifth of a second, and whoever waits for the index waits as
// long.
//
//     record ──► texts found, integers by name ──► leaves ──► operators, from the last to the first
//
// The result is that of the tree, and so are the lines about unknown operations.
//
// Ownership   Keeps what it needs of the tree, not the tree.
// Threads     None inside: belongs to one search at a time.
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "meta/RecordView.h"
#include "search/NeedleAutomaton.h"
#include "search/SearchNode.h"

namespace vorrim {

class WideSearch final {
public:
    explicit WideSearch(const SearchNode& root);

    [[nodiscard]] bool matches(RecordView record);

private:
    enum class Kind : std::uint8_t {
        nothing,
        all,
        text,
        integer,
        unknown_integer,  // of a comparison that nobody knows
        combine,
        unknown_combine,  // likewise, without its sides
    };

    struct Node {
        Kind kind = Kind::nothing;
        std::int32_t op = 0;     // of an operator or a comparison
        std::int32_t value = 0;  // to be compared with
        std::uint32_t at = 0;    // the right side (the left comes next), the text or the group
    };

    // The record's integer tags of one name, in ascending order.
    using Integers = std::vector<std::int32_t>;

    [[nodiscard]] std::vector<NeedleAutomaton::Needle> add_nodes(const SearchNode& root);
    [[nodiscard]] std::uint32_t group_of(const std::string& name);
    void look_at(RecordView record);
    [[nodiscard]] bool value_of(std::size_t node) const;
    void report() const;

    std::vector<Node> nodes_;  // in prefix order
    // By name, from 1 on. Group 0 is that of the texts that any tag may contain.
    std::map<std::string, std::uint32_t, std::less<>> groups_;
    std::optional<NeedleAutomaton> automaton_;
    std::vector<Integers> integers_;  // by group
    std::vector<std::uint8_t> values_;
    bool may_report_;
};

}  // namespace vorrim
