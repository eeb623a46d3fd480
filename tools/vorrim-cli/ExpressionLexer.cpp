#include "ExpressionLexer.h"

#include <algorithm>
#include <string_view>

#include "Failure.h"

namespace vorrim::cli {

namespace {

constexpr std::string_view kBlanks = " \t\n";

bool blank(char c) {
    return kBlanks.find(c) != std::string_view::npos;
}

bool names_a_tag(std::string_view text) {
    while (!text.empty() && blank(text.back()))
        text.remove_suffix(1);
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '_';
    });
}

class Lexer {
public:
    explicit Lexer(std::vector<ExpressionToken>& tokens) : tokens_(tokens) {}

    void argument(std::string_view text) {
        const bool holds_blanks = text.find_first_of(kBlanks) != std::string_view::npos;
        phrase_ = holds_blanks && text.find_first_of("\"()") == std::string_view::npos;
        while (!text.empty())
            text.remove_prefix(one_token(text));
    }

private:
    using Kind = ExpressionToken::Kind;

    // Takes one token, or one blank, off the front; returns how many bytes that were.
    std::size_t one_token(std::string_view text) {
        if (blank(text[0])) return 1;
        if (text[0] == '(' || text[0] == ')') {
            tokens_.push_back({text[0] == '(' ? Kind::open : Kind::close});
            return 1;
        }
        if (text[0] == '-' && text.size() > 1 && !blank(text[1])) {
            tokens_.push_back({Kind::minus});
            return 1;
        }
        return word(text);
    }

    std::size_t word(std::string_view text) {
        ExpressionToken token{Kind::word};
        bool quoted = false;
        std::size_t taken = 0;
        while (taken < text.size()) {
            const std::size_t i = taken;
            const char c = text[i];
            if (c == '"') {
                const std::size_t end = text.find('"', i + 1);
                if (end == std::string_view::npos)
                    throw Failure("a quote is opened and never closed");
                token.text += text.substr(i + 1, end - i - 1);
                quoted = true;
                taken = end + 1;
                continue;
            }
            if (!phrase_ && (blank(c) || c == '(' || c == ')')) break;
            const bool compares = c == '=' || c == '<' || c == '>' ||
                                  (c == '!' && i + 1 < text.size() && text[i + 1] == '=');
            if (compares && token.comparison == std::string::npos && names_a_tag(token.text)) {
                token.comparison = token.text.size();
            }
            token.text += c;
            ++taken;
        }
        if (!quoted && (token.text == "OR" || token.text == "|")) token.kind = Kind::either;
        if (!quoted && (token.text == "AND" || token.text == "&")) token.kind = Kind::both;
        tokens_.push_back(std::move(token));
        return taken;
    }

    std::vector<ExpressionToken>& tokens_;
    bool phrase_ = false;
};

}  // namespace

std::vector<ExpressionToken> tokens_of(std::span<const std::string> arguments) {
    std::vector<ExpressionToken> tokens;
    Lexer lexer(tokens);
    for (const std::string& argument : arguments)
        lexer.argument(argument);
    return tokens;
}

}  // namespace vorrim::cli
