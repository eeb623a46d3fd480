#include <gtest/gtest.h>

#include "search/SearchNode.h"
#include "search/UnknownOperations.h"
#include "search/required_sides.h"
#include "tests/search/SearchFixture.h"

namespace vorrim {
namespace {

using test::combine;
using test::ErrorLines;
using test::kUnknownCompare;
using test::kUnknownOperator;
using test::printed;
using test::Record;
using test::size_above;
using test::word;
using test::written;

// How nodes evaluate, print, write and copy is compared with a model in SearchModelTest.

TEST(SearchNodeTest, ReportsThatAreHeldComeLaterInOrderAndNotWithoutEnd) {
    ErrorLines errors;
    const auto unknown = combine(9, word("a"), word("b"));
    const SN_IntTagCompare compare(1, 77, "x");
    const Record record = Record().integer("x", 1);
    {
        const HeldReports outer;
        {
            const HeldReports held;
            EXPECT_FALSE(unknown->evaluate(record));
            EXPECT_FALSE(compare.evaluate(record));
        }
        EXPECT_TRUE(errors.lines.empty());
    }
    EXPECT_EQ(errors.lines, (std::vector<std::string>{kUnknownOperator, test::kUnknownCompare}));
    {
        const HeldReports held;
        for (std::size_t i = 0; i < HeldReports::kMostLines + 5; ++i)
            EXPECT_FALSE(unknown->evaluate(record));
    }
    EXPECT_EQ(errors.lines.size(), 2 + HeldReports::kMostLines);
}

TEST(SearchNodeTest, LeavesPrintAppendWriteAndMeasureTheirFields) {
    const SN_StringTagCompare text("value", "Name");
    EXPECT_EQ(printed(text), "Name=value");
    EXPECT_EQ(written(text), test::bytes("\x02\x05\0value\x04\0Name"));
    EXPECT_EQ(text.wire_size(), 14);
    const SN_IntTagCompare number(-2, 200, "Size");
    EXPECT_EQ(printed(number), "SizeER-2");
    EXPECT_EQ(written(number), test::bytes("\x03\xFE\xFF\xFF\xFF\xC8\x04\0Size"));
    EXPECT_EQ(number.wire_size(), 12);
    EXPECT_EQ(printed(SN_All()), "*");
    EXPECT_EQ(written(SN_All()), "\x04");
    EXPECT_EQ(SN_All().wire_size(), 1);
    std::string buffer = "before ";
    SN_Substring("after").print(buffer);
    EXPECT_EQ(buffer, "before after");
}

TEST(SearchNodeTest, AnOperatorWithoutAChildWritesNothingAndNeverMatches) {
    const SN_Operator lacks_right(CombineOp::kOr, word("a"));
    EXPECT_EQ(written(lacks_right), "(incomplete)");
    EXPECT_EQ(lacks_right.wire_size(), 0);
    EXPECT_EQ(printed(lacks_right), " ( a |  ) ");
    EXPECT_FALSE(lacks_right.evaluate(Record().text("\x01", "b")));
    EXPECT_EQ(printed(*lacks_right.clone()), " ( a |  ) ");
    kx_memory_file stream(64);
    EXPECT_FALSE(SN_Operator(0, nullptr, word("a")).write(stream));
    EXPECT_EQ(stream.size(), 0U);
}

TEST(SearchNodeTest, WeightsAddUp) {
    EXPECT_EQ(combine(0, combine(1, word("a"), std::make_unique<SN_StringTagCompare>()),
                      combine(7, size_above(1), std::make_unique<SN_All>()))
                  ->weight(),
              14);
}

TEST(SearchNodeTest, EachKindTakesOnlyItsOwnKindOfValue) {
    SN_Substring substring("old");
    substring.set_value(7);
    EXPECT_EQ(substring.text(), "old");
    substring.set_value("New");
    EXPECT_EQ(substring.text(), "New");
    SN_StringTagCompare compare("old", "name");
    compare.set_value("New");
    EXPECT_EQ(printed(compare), "name=New");
    SN_IntTagCompare number(1, 0, "name");
    number.set_value("2");
    EXPECT_EQ(number.value(), 1);
    number.set_value(-2);
    EXPECT_EQ(number.value(), -2);
    SN_All all;
    all.set_value(1);
    SN_Operator op(CombineOp::kOr, word("a"), word("b"));
    op.set_value("x");
    EXPECT_EQ(printed(op), " ( a | b ) ");
}

TEST(SearchNodeTest, AnyUnknownOperationMayReport) {
    const auto compare = [](std::int32_t op) {
        return std::make_unique<SN_IntTagCompare>(1, op, "x");
    };
    EXPECT_FALSE(may_report(*combine(4, word("a"), compare(5))));
    EXPECT_TRUE(may_report(*combine(5, word("a"), word("b"))));
    EXPECT_TRUE(may_report(*compare(6)));
    EXPECT_TRUE(may_report(*combine(1, word("a"), combine(2, word("b"), compare(255)))));
    EXPECT_TRUE(may_report(*combine(1, combine(9, word("b"), compare(1)), word("a"))));
}

// Every verb on trees that no recursion would survive.
enum class Lean { left, right, zigzag };

std::unique_ptr<SearchNode> deep_tree(Lean lean, std::int32_t op, int operators) {
    auto tree = word("a");
    for (int i = 0; i < operators; ++i) {
        const bool left = lean == Lean::left || (lean == Lean::zigzag && i % 2 == 0);
        tree = left ? combine(op, std::move(tree), word("a"))
                    : combine(op, word("a"), std::move(tree));
    }
    return tree;
}

class DeepTreeTest : public testing::TestWithParam<Lean> {};

TEST_P(DeepTreeTest, EveryVerbManagesAnyDepth) {
    test::on_a_small_stack([lean = GetParam()] {
        auto tree = deep_tree(lean, CombineOp::kAnd, test::kDeep);
        EXPECT_EQ(tree->weight(), 10 * (test::kDeep + 1));
        EXPECT_EQ(tree->wire_size(), 2 * test::kDeep + 4 * (test::kDeep + 1));
        EXPECT_TRUE(tree->evaluate(Record().text("\x01", "a")));
        const std::string wire = written(*tree);
        EXPECT_EQ(wire.size(), static_cast<std::size_t>(tree->wire_size()));
        const auto copy = tree->clone();
        EXPECT_EQ(written(*copy), wire);
        EXPECT_EQ(printed(*copy).size(), std::size_t{9} * test::kDeep + test::kDeep + 1);
        std::string keyword;
        SearchNode& root = *tree;
        tree = root.extract_keyword(std::move(tree), keyword);
        EXPECT_EQ(keyword, "a");
        EXPECT_EQ(tree->weight(), 10 * test::kDeep);
    });
}

TEST_P(DeepTreeTest, EvaluationAnswersAtAnyDepth) {
    const Record yes = Record().text("\x01", "a");
    const Record no = Record().text("\x01", "b");
    for (const int operators : {254, 255, 256, 257, 10'001}) {
        SCOPED_TRACE(operators);
        EXPECT_TRUE(deep_tree(GetParam(), CombineOp::kAnd, operators)->evaluate(yes));
        EXPECT_FALSE(deep_tree(GetParam(), CombineOp::kAnd, operators)->evaluate(no));
        EXPECT_FALSE(deep_tree(GetParam(), CombineOp::kOr, operators)->evaluate(no));
        const bool odd_leaves = operators % 2 == 0;
        EXPECT_EQ(deep_tree(GetParam(), CombineOp::kExclusiveOr, operators)->evaluate(yes),
                  odd_leaves);
        // a ! (a ! (a ! ...)) turns over at each step; ((a ! a) ! a) ... stays false.
        bool expected = true;
        for (int i = 0; i < operators; ++i) {
            const bool leans_left =
                GetParam() == Lean::left || (GetParam() == Lean::zigzag && i % 2 == 0);
            expected = leans_left ? expected && false : !expected;
        }
        EXPECT_EQ(deep_tree(GetParam(), CombineOp::kAndNot, operators)->evaluate(yes), expected);
    }
}

INSTANTIATE_TEST_SUITE_P(Shapes, DeepTreeTest,
                         testing::Values(Lean::left, Lean::right, Lean::zigzag),
                         [](const auto& test_case) {
                             switch (test_case.param) {
                                 case Lean::left:
                                     return "LeaningLeft";
                                 case Lean::right:
                                     return "LeaningRight";
                                 default:
                                     return "Zigzag";
                             }
                         });

}  // namespace
}  // namespace vorrim
