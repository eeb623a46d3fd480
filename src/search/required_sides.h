#pragma once
// What can be said about a tree without looking at a record. An index uses it to dismiss candidates
// before it evaluates them.
#include <cstdint>

#include "search/SearchNode.h"
#include "search/prefix_walk.h"

namespace vorrim {

// The sides of an SN_Operator of this code that are true whenever the operator is: both of kAnd,
// the left of kAndNot, the right of kNotAnd.
[[nodiscard]] Sides required_sides(std::int32_t op) noexcept;

// Calls on_text(text) for each text that every match of the tree contains, and on_other(op) for the
// topmost operators that require neither side.
template <class OnText, class OnOther>
void walk_required(const SearchNode& root, OnText on_text, OnOther on_other) {
    prefix_walk(root, [&](const SearchNode& node) {
        if (const auto* combine = node_as<SN_Operator>(&node)) {
            const Sides sides = required_sides(combine->op());
            if (sides == Sides::neither) on_other(*combine);
            return sides;
        }
        if (const auto* substring = node_as<SN_Substring>(&node)) on_text(substring->text());
        if (const auto* compare = node_as<SN_StringTagCompare>(&node)) on_text(compare->text());
        return Sides::neither;
    });
}

// Does evaluating the tree possibly print (an operator or comparison of unknown code)? Then a
// candidate that is dismissed unseen leaves out a line that its evaluation would have printed.
[[nodiscard]] bool may_report(const SearchNode& root);

}  // namespace vorrim
