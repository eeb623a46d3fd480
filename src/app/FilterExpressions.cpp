#include "app/FilterExpressions.h"

#include <array>
#include <cstdint>
#include <string>
#include <utility>

#include "app/IniFile.h"
#include "base/string/kx_strtok.h"
#include "meta/TagNames.h"

namespace vorrim {

namespace {

constexpr kx_char_set kParentheses("()");
constexpr kx_char_set kBlank(" ");
constexpr std::size_t kLongestToken = 255;

struct Field {
    std::string_view name;
    TagId tag;
};

constexpr std::array kFields = {
    Field{"#FILENAME", TagId::Name},    Field{"#SIZE", TagId::Size},
    Field{"#TYPE", TagId::Type},        Field{"#FORMAT", TagId::Format},
    Field{"#DESC", TagId::Description}, Field{"#AVAIL", TagId::Availability},
};

struct OperatorToken {
    std::string_view token;
    std::int32_t op;
};

constexpr std::array kCompareTokens = {
    OperatorToken{">", CompareOp::kGreater},         OperatorToken{"<", CompareOp::kLess},
    OperatorToken{">=", CompareOp::kGreaterOrEqual}, OperatorToken{"<=", CompareOp::kLessOrEqual},
    OperatorToken{"!=", CompareOp::kNotEqual},
};

constexpr std::array kCombineTokens = {
    OperatorToken{"|", CombineOp::kOr},
    OperatorToken{"!", CombineOp::kAndNot},
    OperatorToken{"x", CombineOp::kExclusiveOr},
};

template <std::size_t Count>
std::int32_t code_of(std::string_view token, const std::array<OperatorToken, Count>& table,
                     std::int32_t otherwise) {
    for (const OperatorToken& row : table)
        if (row.token == token) return row.op;
    return otherwise;
}

std::string tag_name_of(std::string_view field) {
    for (const Field& row : kFields)
        if (row.name == field) return std::string(wire_name(row.tag));
    return std::string(field);
}

}  // namespace

std::optional<Search> parseFilter(std::string_view text) {
    Search filter;
    std::string_view token;
    std::int32_t op = CombineOp::kAnd;
    bool is_term = true;
    for (std::int32_t at = kx_strtok(text, kParentheses, 0, token, kLongestToken); at != 0;
         at = kx_strtok(text, kParentheses, at, token, kLongestToken)) {
        if (is_term) {
            auto term = parseFilterTerm(token);
            if (!term) return std::nullopt;
            filter.add_term(std::move(term), op);
        } else {
            op = code_of(token, kCombineTokens, CombineOp::kAnd);
        }
        is_term = !is_term;
    }
    if (!filter.root()) return std::nullopt;
    return filter;
}

std::unique_ptr<SearchNode> parseFilterTerm(std::string_view text) {
    std::string_view first;
    std::int32_t at = kx_strtok(text, kBlank, 0, first, kLongestToken);
    if (at == 0) return nullptr;
    if (at == kx_strtok_end && first.starts_with('*')) return std::make_unique<SN_All>();
    if (at == kx_strtok_end) return std::make_unique<SN_Substring>(std::string(first));

    std::string_view second;
    at = kx_strtok(text, kBlank, at, second, kLongestToken);
    if (at == 0) return std::make_unique<SN_Substring>(std::string(first));  // blanks behind it
    if (at == kx_strtok_end)
        return std::make_unique<SN_StringTagCompare>(std::string(second), tag_name_of(first));

    std::string_view third;
    if (kx_strtok(text, kBlank, at, third, kLongestToken) == 0) return nullptr;
    // Sizes of 2 to 4 GiB wrap here as they do in their tags: both are negative numbers.
    return std::make_unique<SN_IntTagCompare>(IniFile::toInt(third),
                                              code_of(second, kCompareTokens, CompareOp::kEqual),
                                              tag_name_of(first));
}

}  // namespace vorrim
