#pragma once
// What can be said about all matches of a tree without looking at a record. An index uses it to
// dismiss candidates before it evaluates them.
#include <string_view>
#include <vector>

#include "search/SearchNode.h"

namespace vorrim {

// Texts that every matching record contains in some text tag, once the tag's letters A to Z are
// folded to lower case: the texts of SN_Substring and SN_StringTagCompare nodes that are reached
// from the root through sides that must be true (both of kAnd, the left of kAndNot, the right of
// kNotAnd). Empty texts are left out; repeated ones stand as often as they occur. In order of the
// leaves. The views point into the tree.
[[nodiscard]] std::vector<std::string_view> required_texts(const SearchNode& root);

// Does evaluating the tree possibly print (an operator or comparison of unknown code)? Then a
// candidate that is dismissed unseen leaves out a line that its evaluation would have printed.
[[nodiscard]] bool may_report(const SearchNode& root);

}  // namespace vorrim
