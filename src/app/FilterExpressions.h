#pragma once
// The small language of the setting `filter`:
//
//     (#SIZE > 650)|(#TYPE Audio)!(mp3)      terms in parentheses, an operator between two of them
//
//     *                every record              word               some text tag contains it
//     field text       a text tag contains it    field op number    an integer tag compares so
//
// Terms combine from left to right, without precedence. Threads: any.
#include <memory>
#include <optional>
#include <string_view>

#include "search/Search.h"
#include "search/SearchNode.h"

namespace vorrim {

// None when the filter is bad: without any term, or with a term that is none.
[[nodiscard]] std::optional<Search> parseFilter(std::string_view text);

// One term, without its parentheses. None when it is only blanks, or a comparison that lacks its
// number. A single word followed by blanks is a term for that word.
[[nodiscard]] std::unique_ptr<SearchNode> parseFilterTerm(std::string_view text);

}  // namespace vorrim
