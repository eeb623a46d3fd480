#pragma once
// What the tests of expressions share: records that are asked, trees that ask.
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "meta/RecordView.h"
#include "search/Search.h"
#include "tests/WireForms.h"

namespace vorrim::test {

// A record with these tags, in network form.
class Shown {
public:
    explicit Shown(const std::vector<wire::Tag>& tags)
        : bytes_(wire::Record{{}, 0, 0, tags}.encode()) {}
    // NOLINTNEXTLINE(google-explicit-constructor): a record is asked as what it shows
    operator RecordView() const { return RecordView(span_of(bytes_)); }

private:
    const wire::Bytes bytes_;
};

inline Search search_of(std::unique_ptr<SearchNode> root) {
    Search search;
    search.add_term(std::move(root), CombineOp::kAnd);
    return search;
}

inline std::string printed(const SearchNode& node) {
    std::string text;
    node.print(text);
    return text;
}

inline std::string printed(const Search& search) {
    std::string text;
    search.print(text);
    return text;
}

inline std::unique_ptr<SearchNode> word(std::string text) {
    return std::make_unique<SN_Substring>(std::move(text));
}
inline std::unique_ptr<SearchNode> size_above(std::int32_t value) {
    return std::make_unique<SN_IntTagCompare>(value, CompareOp::kGreater, "\x02");
}
inline std::unique_ptr<SearchNode> combine(std::int32_t op, std::unique_ptr<SearchNode> left,
                                           std::unique_ptr<SearchNode> right) {
    return std::make_unique<SN_Operator>(op, std::move(left), std::move(right));
}

}  // namespace vorrim::test
