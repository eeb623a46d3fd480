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

// Does evaluating the tree possibly print (an operator or comparison of unknown code)? Then a
// candidate that is dismissed unseen leaves out a line that its evaluation would have printed.
[[nodiscard]] bool may_report(const SearchNode& root);

}  // namespace vorrim
