#include <gtest/gtest.h>

#include "search/required_texts.h"
#include "tests/search/SearchFixture.h"

namespace vorrim {
namespace {

using test::combine;
using test::size_above;
using test::word;

using Texts = std::vector<std::string_view>;

std::unique_ptr<SearchNode> tag_text(std::string text) {
    return std::make_unique<SN_StringTagCompare>(std::move(text), "Artist");
}

TEST(RequiredTextsTest, LeavesThatHoldATextRequireIt) {
    EXPECT_EQ(required_texts(*word("sky")), Texts{"sky"});
    EXPECT_EQ(required_texts(*tag_text("abc")), Texts{"abc"});
    EXPECT_EQ(required_texts(*word("")), Texts{});
    EXPECT_EQ(required_texts(*tag_text("")), Texts{});
    EXPECT_EQ(required_texts(*size_above(3)), Texts{});
    EXPECT_EQ(required_texts(SN_All()), Texts{});
}

TEST(RequiredTextsTest, OnlySidesThatMustBeTrueCount) {
    const auto both = [](std::int32_t op) { return combine(op, word("a"), tag_text("b")); };
    EXPECT_EQ(required_texts(*both(0)), (Texts{"a", "b"}));
    EXPECT_EQ(required_texts(*both(1)), Texts{});
    EXPECT_EQ(required_texts(*both(2)), Texts{"a"});
    EXPECT_EQ(required_texts(*both(3)), Texts{});
    EXPECT_EQ(required_texts(*both(4)), Texts{"b"});
    EXPECT_EQ(required_texts(*both(5)), Texts{});
}

TEST(RequiredTextsTest, TheyAreFoundBelowOneAnotherInOrder) {
    const auto tree =
        combine(0, combine(2, combine(0, word("a"), size_above(1)), word("not this")),
                combine(0, combine(1, word("nor"), word("these")),
                        combine(4, word("nor that"), combine(0, word("b"), word("a")))));
    EXPECT_EQ(required_texts(*tree), (Texts{"a", "b", "a"}));
}

TEST(RequiredTextsTest, ChainsOfAnyLengthAreWalked) {
    test::on_a_small_stack([] {
        auto left = word("a");
        auto right = word("a");
        for (int i = 1; i < test::kDeep; ++i) {
            left = combine(0, std::move(left), word("a"));
            right = combine(0, word("a"), std::move(right));
        }
        EXPECT_EQ(required_texts(*left).size(), std::size_t{test::kDeep});
        EXPECT_EQ(required_texts(*right).size(), std::size_t{test::kDeep});
        EXPECT_FALSE(may_report(*left));
    });
}

TEST(RequiredTextsTest, AnyUnknownOperationMayReport) {
    const auto compare = [](std::int32_t op) {
        return std::make_unique<SN_IntTagCompare>(1, op, "x");
    };
    EXPECT_FALSE(may_report(*combine(4, word("a"), compare(5))));
    EXPECT_TRUE(may_report(*combine(5, word("a"), word("b"))));
    EXPECT_TRUE(may_report(*compare(6)));
    EXPECT_TRUE(may_report(*combine(1, word("a"), combine(2, word("b"), compare(255)))));
    EXPECT_TRUE(may_report(*combine(1, combine(9, word("b"), compare(1)), word("a"))));
}

}  // namespace
}  // namespace vorrim
