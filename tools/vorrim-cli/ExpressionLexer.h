#pragma once
// The command line's words, cut into the tokens of the search language.

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace vorrim::cli {

struct ExpressionToken {
    enum class Kind { word, open, close, either, both, minus };

    Kind kind;
    std::string text = {};  // word
    // Where in `text` a comparison such as = or >= begins; npos when it has none outside quotes.
    std::size_t comparison = std::string::npos;
};

// An argument with blanks but neither quotes nor parentheses is one word: the shell has taken the
// quotes away from a phrase. Raises Failure for a quote without an end.
[[nodiscard]] std::vector<ExpressionToken> tokens_of(std::span<const std::string> arguments);

}  // namespace vorrim::cli
