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

// A leaf with a given answer that notes when it is asked.
class Probe final : public SearchNode {
public:
    Probe(bool answer, char name, std::string& asked)
        : SearchNode(NodeKind::all), answer_(answer), name_(name), asked_(asked) {}
    std::unique_ptr<SearchNode> clone() const override {
        return std::make_unique<Probe>(answer_, name_, asked_);
    }
    bool evaluate(RecordView) const override {
        asked_ += name_;
        return answer_;
    }
    bool write(kx_memory_file&) const override { return true; }
    void read(kx_memory_file&) override {}
    std::int32_t wire_size() const override { return 0; }
    std::int32_t weight() const override { return 1; }
    void print(std::string& buffer) const override { buffer += name_; }

private:
    bool answer_;
    char name_;
    std::string& asked_;
};

TEST(SearchNodeTest, OperatorsAskOnlyTheSidesTheyNeed) {
    struct Case {
        std::int32_t op;
        bool left, right, result;
        const char* asked;
    };
    const Case cases[] = {
        {0, false, false, false, "l"},  {0, false, true, false, "l"},
        {0, true, false, false, "lr"},  {0, true, true, true, "lr"},
        {1, false, false, false, "lr"}, {1, false, true, true, "lr"},
        {1, true, false, true, "l"},    {1, true, true, true, "l"},
        {2, false, false, false, "l"},  {2, false, true, false, "l"},
        {2, true, false, true, "lr"},   {2, true, true, false, "lr"},
        {3, false, false, false, "lr"}, {3, false, true, true, "lr"},
        {3, true, false, true, "lr"},   {3, true, true, false, "lr"},
        {4, false, false, false, "lr"}, {4, false, true, true, "lr"},
        {4, true, false, false, "l"},   {4, true, true, false, "l"},
    };
    const Record record;
    for (const Case& c : cases) {
        std::string asked;
        const auto node = combine(c.op, std::make_unique<Probe>(c.left, 'l', asked),
                                  std::make_unique<Probe>(c.right, 'r', asked));
        EXPECT_EQ(node->evaluate(record), c.result) << c.op << c.left << c.right;
        EXPECT_EQ(asked, c.asked) << c.op << c.left << c.right;
    }
}

TEST(SearchNodeTest, AnUnknownOperatorIsFalseAndReportedEachTimeItIsEvaluated) {
    ErrorLines errors;
    std::string asked;
    const auto node = combine(1,
                              combine(5, std::make_unique<Probe>(true, 'a', asked),
                                      std::make_unique<Probe>(true, 'b', asked)),
                              combine(255, std::make_unique<Probe>(true, 'c', asked),
                                      std::make_unique<Probe>(true, 'd', asked)));
    const Record record;
    EXPECT_FALSE(node->evaluate(record));
    EXPECT_EQ(errors.lines, (std::vector<std::string>{kUnknownOperator, kUnknownOperator}));
    EXPECT_FALSE(node->evaluate(record));
    EXPECT_EQ(errors.lines.size(), 4U);
    EXPECT_EQ(asked, "");
}

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

TEST(SearchNodeTest, AnOperatorThatNeedsNotBeAskedReportsNothing) {
    ErrorLines errors;
    const auto node = combine(0, word("absent"), combine(9, word("a"), word("b")));
    EXPECT_FALSE(node->evaluate(Record().text("\x01", "present")));
    EXPECT_TRUE(errors.lines.empty());
}

TEST(SearchNodeTest, ASubstringFoldsTheTagAndNotItself) {
    const Record record =
        Record().integer("\x02", 1).text("\x01", "XABCD").text("Artist", "[\xC4]");
    EXPECT_TRUE(SN_Substring("abc").evaluate(record));
    EXPECT_TRUE(SN_Substring("xabcd").evaluate(record));
    EXPECT_TRUE(SN_Substring("").evaluate(record));
    EXPECT_TRUE(SN_Substring("[\xC4]").evaluate(record)) << "only A to Z are folded";
    EXPECT_FALSE(SN_Substring("aBc").evaluate(record));
    EXPECT_FALSE(SN_Substring("xabcde").evaluate(record));
    EXPECT_FALSE(SN_Substring("d[").evaluate(record)) << "a text does not run into the next tag";
}

TEST(SearchNodeTest, ARecordWithoutTextTagsMatchesNoSubstring) {
    EXPECT_FALSE(SN_Substring("").evaluate(Record()));
    EXPECT_FALSE(SN_Substring("").evaluate(Record().integer("\x01", 5).hash("\x07")));
}

TEST(SearchNodeTest, AStringCompareAsksTextTagsOfExactlyItsName) {
    const Record record = Record()
                              .text("Artist", "First")
                              .text("artist", "Second")
                              .integer("Album", 7)
                              .text("Artist", "Third")
                              .text("n", "Unnamed")
                              .text("", "Empty name");
    EXPECT_TRUE(SN_StringTagCompare("first", "Artist").evaluate(record));
    EXPECT_TRUE(SN_StringTagCompare("hird", "Artist").evaluate(record));
    EXPECT_TRUE(SN_StringTagCompare("", "Artist").evaluate(record));
    EXPECT_TRUE(SN_StringTagCompare("empty", "").evaluate(record));
    EXPECT_FALSE(SN_StringTagCompare("second", "Artist").evaluate(record));
    EXPECT_FALSE(SN_StringTagCompare("First", "Artist").evaluate(record));
    EXPECT_FALSE(SN_StringTagCompare("", "Album").evaluate(record));
    EXPECT_FALSE(SN_StringTagCompare("unnamed", "n").evaluate(record)) << "that tag has no name";
}

TEST(SearchNodeTest, AnIntegerCompareIsSigned) {
    struct Case {
        std::int32_t op;
        const char* text;
        bool less, equal, greater;  // for tag values -2, -1 and 3 against -1
    };
    const Case cases[] = {
        {0, "s=-1", false, true, false}, {1, "s>-1", false, false, true},
        {2, "s<-1", true, false, false}, {3, "s>=-1", false, true, true},
        {4, "s<=-1", true, true, false}, {5, "s!=-1", true, false, true},
    };
    for (const Case& c : cases) {
        const SN_IntTagCompare node(-1, c.op, "s");
        EXPECT_EQ(printed(node), c.text);
        EXPECT_EQ(node.evaluate(Record().integer("s", -2)), c.less) << c.text;
        EXPECT_EQ(node.evaluate(Record().integer("s", -1)), c.equal) << c.text;
        EXPECT_EQ(node.evaluate(Record().integer("s", 3)), c.greater) << c.text;
    }
}

TEST(SearchNodeTest, AnIntegerCompareTriesEveryIntegerTagOfItsName) {
    const SN_IntTagCompare above(10, CompareOp::kGreater, "x");
    EXPECT_TRUE(above.evaluate(Record().integer("x", 5).integer("x", 11)));
    EXPECT_TRUE(above.evaluate(Record().integer("x", 11).integer("x", 5)));
    EXPECT_TRUE(above.evaluate(Record().text("x", "99").integer("x", 11)));
    EXPECT_FALSE(above.evaluate(Record().integer("x", 5).integer("X", 11)));
    EXPECT_FALSE(above.evaluate(Record().text("x", "99")));
    EXPECT_FALSE(SN_IntTagCompare(0, CompareOp::kEqual, "x").evaluate(Record().hash("x")));
}

TEST(SearchNodeTest, AnUnknownComparisonReportsEachTagOfItsName) {
    ErrorLines errors;
    const SN_IntTagCompare unknown(1, 6, "x");
    EXPECT_FALSE(
        unknown.evaluate(Record().integer("x", 1).integer("y", 1).text("x", "1").integer("x", 2)));
    EXPECT_EQ(errors.lines, (std::vector<std::string>{kUnknownCompare, kUnknownCompare}));
    EXPECT_FALSE(unknown.evaluate(Record().integer("y", 1)));
    EXPECT_EQ(errors.lines.size(), 2U);
}

TEST(SearchNodeTest, OperatorsPrintTheirCharacter) {
    const char* const expected[] = {" ( a & b ) ", " ( a | b ) ", " ( a ! b ) ",
                                    " ( a x b ) ", " ( a b ) ",   " ( a b ) "};
    for (std::int32_t op = 0; op < 6; ++op)
        EXPECT_EQ(printed(*combine(op, word("a"), word("b"))), expected[op]);
    EXPECT_EQ(printed(*combine(255, word("a"), word("b"))), " ( a b ) ");
    EXPECT_EQ(printed(*combine(-1, word("a"), word("b"))), " ( a b ) ");
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

TEST(SearchNodeTest, ACloneIsDeep) {
    auto original = combine(
        9, combine(1, word("a"), size_above(-1)),
        combine(0, std::make_unique<SN_StringTagCompare>("v", "n"), std::make_unique<SN_All>()));
    const std::string text = printed(*original);
    const std::string wire = written(*original);
    const auto copy = original->clone();
    original.reset();
    EXPECT_EQ(printed(*copy), text);
    EXPECT_EQ(written(*copy), wire);
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
