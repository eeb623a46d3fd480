#pragma once
// The little search language of the command line.
//
//     linux kernel               both words, in one text or in several
//     "blue sky"                 the words in this order; an argument with blanks is a phrase too
//     -word  -type=image         not this
//     mp3 OR ogg                 either; binds weaker than words side by side
//     (mp3 OR ogg) beatles       parentheses, where they need be
//     type=audio  name="a b"     a text tag contains this; != for "does not"
//     size>1M  sources>=3        a number; = != < > <= >=, and K, M, G for 1024 and so on
//     bitrate>128  Artist=abba   tags by their own names
//     *                          everything
//
// Threads: none inside. Errors: a Failure that says what is wrong and where.

#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "ExpressionTerm.h"
#include "search/SearchNode.h"

namespace vorrim::cli {

// How much an expression may hold. The server reads 256 levels; these keep well below.
inline constexpr std::size_t kMostTerms = 100;
inline constexpr std::size_t kDeepestParentheses = 20;

// The typed form of the arguments, which are joined by blanks.
[[nodiscard]] ExpressionTerm parse_terms(std::span<const std::string> arguments);

// The tree to send for it. The first text of the outermost conjunction comes first, and in front of
// it the first whole word of that text when it has several: a server with a keyword index looks up
// exactly that word, so a text such as "file-name" would find nothing by itself.
[[nodiscard]] std::unique_ptr<SearchNode> build_expression(const ExpressionTerm& term);

// The first word of a text as a server's index would cut it; empty when the text holds none.
[[nodiscard]] std::string_view first_whole_word(std::string_view text);

[[nodiscard]] inline std::unique_ptr<SearchNode> parse_expression(
    std::span<const std::string> arguments) {
    return build_expression(parse_terms(arguments));
}

}  // namespace vorrim::cli
