// Random expressions on random records, against a model that says the rules in the plainest way:
// recursion over values, nothing shared with the code under test.
#include <algorithm>
#include <climits>
#include <cstdlib>
#include <gtest/gtest.h>
#include <iostream>
#include <random>

#include "search/required_sides.h"
#include "tests/search/ExpressionModel.h"
#include "tests/search/SearchFixture.h"

namespace vorrim {
namespace {

using namespace test;

class Chance {
public:
    explicit Chance(unsigned seed) : engine_(seed) {}
    int below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(engine_); }
    template <std::size_t Size>
    const char* one_of(const char* const (&choices)[Size]) {
        return choices[below(static_cast<int>(Size))];
    }

    std::string tag_name() { return one_of({"\x01", "\x02", "Artist", "artist", "n", ""}); }
    std::int32_t number() { return below(5) == 0 ? INT32_MIN + below(2) : below(5) - 2; }
    std::string text(const char* letters, int longest) {
        std::string result;
        for (int length = below(longest + 1); length > 0; --length)
            result += letters[below(static_cast<int>(std::string_view(letters).size()))];
        return result;
    }

    ModelRecord record() {
        ModelRecord record;
        for (int count = below(6); count > 0; --count)
            record.tags.push_back({below(3) + 1, tag_name(), text("abAB ", 24),
                                   static_cast<std::uint32_t>(number())});
        return record;
    }

    ModelNode expression(int levels) {
        const int kind = levels > 0 && below(4) != 0 ? 0 : 1 + below(4);
        // Plain "and" half of the time, so that extraction gets somewhere; rarely an unknown code.
        const int op = below(2) == 0 ? 0 : below(20) == 0 ? 5 + below(251) : below(6);
        ModelNode node{kind, op, number(), "", "", {}};
        if (kind == 0) node.children = {expression(levels - 1), expression(levels - 1)};
        if (kind == 1 || kind == 2)
            node.text = below(40) == 0 ? std::string(300, 'a') : text("ab ", 3);
        if (kind == 2 || kind == 3) node.name = tag_name();
        return node;
    }

private:
    std::mt19937 engine_;
};

test::Record record_of(const ModelRecord& model) {
    test::Record record;
    for (const ModelTag& tag : model.tags) {
        if (tag.type == 1) record = std::move(record).hash(tag.name);
        if (tag.type == 2) record = std::move(record).text(tag.name, tag.value);
        if (tag.type == 3)
            record = std::move(record).integer(tag.name, static_cast<std::int32_t>(tag.number));
    }
    return record;
}

// Result and error lines of both on a few records.
void expect_same_evaluation(const Search& search, const ModelNode& model, Chance& chance) {
    for (int i = 0; i < 8; ++i) {
        const ModelRecord record = chance.record();
        test::ErrorLines errors;
        Lines expected_lines;
        const bool expected = model.evaluate(record, expected_lines);
        EXPECT_EQ(search.matches(record_of(record)), expected) << model.print();
        EXPECT_EQ(errors.lines, expected_lines) << model.print();
        EXPECT_TRUE(expected_lines.empty() || may_report(*search.root())) << model.print();
        if (!expected) continue;
        prefix_walk(*search.root(), [&](const SearchNode& node) {
            if (const auto* combine = node_as<SN_Operator>(&node))
                return required_sides(combine->op());
            EXPECT_TRUE(node.evaluate(record_of(record))) << model.print();
            return Sides::neither;
        });
    }
}

TEST(SearchModelTest, RandomExpressionsBehaveAsTheModel) {
    // Set VORRIM_TEST_SEED to run one seed again.
    const char* const given = std::getenv("VORRIM_TEST_SEED");
    const unsigned seed =
        given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::cout << "seed " << seed << '\n';
    Chance chance(seed);
    for (int round = 0; round < 1000 && !testing::Test::HasFailure(); ++round) {
        ModelSearch model{chance.expression(chance.below(7)), "", -1, 0};
        const std::string wire = model.root->encode();
        Search search;
        ASSERT_TRUE(test::read_bytes(search, wire));
        EXPECT_EQ(test::printed(search), "search( " + model.root->print() + " )");
        EXPECT_EQ(test::written(*search.root()), wire);
        EXPECT_EQ(static_cast<std::size_t>(search.root()->wire_size()), wire.size());
        EXPECT_EQ(test::written(*search.root()->clone()), wire);
        expect_same_evaluation(search, *model.root, chance);

        // Extraction, and again as a continued search does while the keyword is empty.
        for (int i = 0; i < 2; ++i) {
            model.extract();
            EXPECT_EQ(search.extract_keyword(), model.keyword);
            EXPECT_EQ(test::printed(*search.root()), model.root->print());
        }
        expect_same_evaluation(search, *model.root, chance);
    }
}

}  // namespace
}  // namespace vorrim
