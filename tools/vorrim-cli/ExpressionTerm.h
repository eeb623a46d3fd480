#pragma once
// A search as it was typed, before it becomes a tree of search nodes.
//
// The tree of the wire knows only operators with two children. Here a conjunction holds all its
// parts, so that the builder can put the part in front by which a server finds its list.

#include <cstdint>
#include <string>
#include <vector>

#include "search/SearchNode.h"

namespace vorrim::cli {

struct ExpressionTerm {
    enum class Kind { everything, text, text_compare, integer_compare, all_of, any_of, none_of };

    Kind kind = Kind::everything;
    std::string text;         // text, text_compare: what to look for
    std::string tag;          // comparisons: the tag's name on the wire
    std::int32_t number = 0;  // integer_compare
    std::int32_t comparison = CompareOp::kEqual;
    std::vector<ExpressionTerm> parts;  // all_of, any_of: two or more; none_of: one
};

}  // namespace vorrim::cli
