#include "ExpressionParser.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "ExpressionLexer.h"
#include "Failure.h"
#include "Text.h"
#include "base/string/strings.h"
#include "meta/TagNames.h"

namespace vorrim::cli {

namespace {

using Kind = ExpressionTerm::Kind;
using Token = ExpressionToken;

// ---------------------------------------------------------------- comparisons

struct KnownTag {
    std::string_view typed;
    TagId id;
};

constexpr std::array kKnownTags = std::to_array<KnownTag>({
    {"name", TagId::Name},
    {"size", TagId::Size},
    {"type", TagId::Type},
    {"format", TagId::Format},
    {"desc", TagId::Description},
    {"description", TagId::Description},
    {"port", TagId::Port},
    {"version", TagId::Version},
    {"avail", TagId::Availability},
    {"availability", TagId::Availability},
    {"sources", TagId::Availability},
});

struct Sign {
    std::string_view typed;
    std::int32_t comparison;
};

// Two characters before one, so that the longer sign wins.
constexpr std::array kSigns = std::to_array<Sign>({
    {"!=", CompareOp::kNotEqual},
    {">=", CompareOp::kGreaterOrEqual},
    {"<=", CompareOp::kLessOrEqual},
    {"=", CompareOp::kEqual},
    {">", CompareOp::kGreater},
    {"<", CompareOp::kLess},
});

std::string_view trimmed(std::string_view text) {
    return vorrim::trimmed(text, " \t");
}

std::string quoted(std::string_view text) {
    return '\'' + printable(text) + '\'';
}

// 1000, -5, 4K, 10M, 2G. Nothing when it is no number; a Failure when it is one that no tag holds.
std::optional<std::int32_t> number_of(std::string_view text) {
    std::int64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    const std::string_view suffix(rest, static_cast<std::size_t>(end - rest));
    if (error == std::errc::invalid_argument || suffix.size() > 1) return std::nullopt;
    std::int64_t unit = 1;
    if (!suffix.empty()) {
        constexpr std::string_view kUnits = "KMG";
        const char letter = suffix[0] >= 'a' ? static_cast<char>(suffix[0] - 'a' + 'A') : suffix[0];
        const std::size_t power = kUnits.find(letter);
        if (power == std::string_view::npos) return std::nullopt;
        unit = std::int64_t{1} << (10 * (power + 1));
    }
    constexpr std::int64_t kLowest = std::numeric_limits<std::int32_t>::min();
    constexpr std::int64_t kHighest = std::numeric_limits<std::int32_t>::max();
    if (error == std::errc::result_out_of_range || value > kHighest / unit ||
        value < kLowest / unit) {
        throw Failure(quoted(text) +
                      " is out of range: numbers lie between -2147483648 and 2147483647");
    }
    return static_cast<std::int32_t>(value * unit);
}

ExpressionTerm text_comparison(std::string tag, std::string_view value, std::int32_t comparison) {
    ExpressionTerm term;
    term.kind = Kind::text_compare;
    term.tag = std::move(tag);
    term.text = value;
    if (comparison == CompareOp::kEqual) return term;
    ExpressionTerm opposite;
    opposite.kind = Kind::none_of;
    opposite.parts.push_back(std::move(term));
    return opposite;
}

ExpressionTerm number_comparison(std::string tag, std::int32_t value, std::int32_t comparison) {
    ExpressionTerm term;
    term.kind = Kind::integer_compare;
    term.tag = std::move(tag);
    term.number = value;
    term.comparison = comparison;
    return term;
}

ExpressionTerm comparison_term(const Token& token) {
    const std::string_view text = token.text;
    const std::string_view name = trimmed(text.substr(0, token.comparison));
    const std::string_view tail = text.substr(token.comparison);
    const auto sign = std::find_if(kSigns.begin(), kSigns.end(),
                                   [&](const Sign& s) { return tail.starts_with(s.typed); });
    const std::int32_t comparison = sign->comparison;
    const std::string_view value = trimmed(tail.substr(sign->typed.size()));
    if (value.empty()) throw Failure(quoted(text) + " compares with nothing");
    const bool equality = comparison == CompareOp::kEqual || comparison == CompareOp::kNotEqual;
    const std::optional<std::int32_t> number = number_of(value);

    const std::string known_name = lowered(name);
    const auto known = std::find_if(kKnownTags.begin(), kKnownTags.end(),
                                    [&](const KnownTag& tag) { return tag.typed == known_name; });
    if (known == kKnownTags.end()) {
        // A tag of the publisher's own: what the value looks like decides how it is compared.
        if (number) return number_comparison(std::string(name), *number, comparison);
        if (equality) return text_comparison(std::string(name), value, comparison);
        throw Failure(quoted(text) + " needs a number to compare with");
    }
    std::string tag(wire_name(known->id));
    if (tag_row(known->id).type == TagType::text) {
        if (equality) return text_comparison(std::move(tag), value, comparison);
        throw Failure(quoted(name) + " is a text: compare it with = or !=");
    }
    if (!number) throw Failure(quoted(name) + " is a number: " + quoted(value) + " is none");
    return number_comparison(std::move(tag), *number, comparison);
}

// ---------------------------------------------------------------- the grammar
//
//     any  := all { OR all }
//     all  := one { [AND] one }
//     one  := { '-' } ( word | '(' any ')' )

class Parser {
public:
    explicit Parser(std::vector<Token> tokens) : tokens_(std::move(tokens)) {}

    ExpressionTerm whole() {
        ExpressionTerm term = any(0);
        if (next_ < tokens_.size()) throw Failure("')' closes nothing");
        return term;
    }

private:
    [[nodiscard]] bool at(Token::Kind kind) const {
        return next_ < tokens_.size() && tokens_[next_].kind == kind;
    }

    ExpressionTerm any(std::size_t depth) {
        return joined(
            Kind::any_of, [&] { return all(depth); }, [&] { return at(Token::Kind::either); });
    }

    ExpressionTerm all(std::size_t depth) {
        return joined(
            Kind::all_of, [&] { return one(depth); },
            [&] {
                return next_ < tokens_.size() && !at(Token::Kind::either) &&
                       !at(Token::Kind::close);
            });
    }

    template <class Part, class More>
    ExpressionTerm joined(Kind kind, Part part, More more) {
        ExpressionTerm term = part();
        while (more()) {
            if (at(Token::Kind::either) || at(Token::Kind::both)) ++next_;
            ExpressionTerm following = part();
            if (term.kind != kind) {
                ExpressionTerm list;
                list.kind = kind;
                list.parts.push_back(std::move(term));
                term = std::move(list);
            }
            term.parts.push_back(std::move(following));
        }
        return term;
    }

    ExpressionTerm one(std::size_t depth) {
        bool wanted = true;
        while (at(Token::Kind::minus)) {
            wanted = !wanted;
            ++next_;
        }
        ExpressionTerm term = operand(depth);
        if (wanted) return term;
        ExpressionTerm opposite;
        opposite.kind = Kind::none_of;
        opposite.parts.push_back(std::move(term));
        return opposite;
    }

    ExpressionTerm operand(std::size_t depth) {
        if (next_ >= tokens_.size()) throw Failure("the search ends where a word is expected");
        if (at(Token::Kind::open)) {
            if (depth >= kDeepestParentheses) throw Failure("the parentheses are nested too deep");
            ++next_;
            ExpressionTerm inner = any(depth + 1);
            if (!at(Token::Kind::close)) throw Failure("'(' is never closed");
            ++next_;
            return inner;
        }
        if (!at(Token::Kind::word)) throw Failure("a word is expected in front of " + described());
        if (++terms_ > kMostTerms) {
            throw Failure("a search holds at most " + std::to_string(kMostTerms) + " words");
        }
        return word(tokens_[next_++]);
    }

    static ExpressionTerm word(const Token& token) {
        if (token.comparison != std::string::npos) return comparison_term(token);
        ExpressionTerm term;
        if (token.text == "*") return term;
        term.kind = Kind::text;
        term.text = trimmed(token.text);
        if (first_whole_word(term.text).empty()) {
            throw Failure(quoted(token.text) + " holds no word to search for");
        }
        return term;
    }

    [[nodiscard]] std::string described() const {
        switch (tokens_[next_].kind) {
            case Token::Kind::either:
                return "OR";
            case Token::Kind::both:
                return "AND";
            case Token::Kind::close:
                return "')'";
            default:
                return quoted(tokens_[next_].text);
        }
    }

    std::vector<Token> tokens_;
    std::size_t next_ = 0;
    std::size_t terms_ = 0;
};

}  // namespace

ExpressionTerm parse_terms(std::span<const std::string> arguments) {
    std::vector<Token> tokens = tokens_of(arguments);
    if (tokens.empty()) throw Failure("nothing to search for");
    return Parser(std::move(tokens)).whole();
}

}  // namespace vorrim::cli
