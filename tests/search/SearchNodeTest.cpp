#include <functional>
#include <gtest/gtest.h>
#include <utility>

#include "base/kx_thread_registry.h"
#include "search/SearchNode.h"
#include "search/UnknownOperations.h"
#include "search/required_sides.h"
#include "tests/base/RecordingOutput.h"
#include "tests/search/SearchFixture.h"

namespace vorrim {
namespace {

using namespace test;

// How nodes evaluate, and how many lines they print at most, is compared with a model in
// IndexModelTest, that they write and copy what they are is claimed by the fuzz target, what can be
// read is the wire tests' matter.

TEST(SearchNodeTest, ReportsThatAreHeldComeLaterInOrder) {
    RecordingOutput errors;
    const auto unknown = combine(9, word("a"), word("b"));
    const SN_IntTagCompare compare(1, 77, "x");
    const Shown record({wire::int_tag("x", 1)});
    {
        const HeldReports outer;
        {
            const HeldReports held;
            EXPECT_FALSE(unknown->evaluate(record));
            EXPECT_FALSE(compare.evaluate(record));
        }
        EXPECT_TRUE(errors.texts().empty());
    }
    EXPECT_EQ(errors.texts(), (std::vector<std::string>{"Unknown Operation in Search",
                                                        "Unknown Operation in SN_IntTagCompare"}));
}

wire::Bytes written(const SearchNode& node) {
    kx_memory_file stream(64);
    EXPECT_TRUE(node.write(stream));
    return bytes_of(stream.contents());
}

// Runs `body` where recursion over a tree of kDeep nodes cannot pass unnoticed: on half a megabyte
// of stack, of which even the smallest frame, repeated so often, needs more.
constexpr int kDeep = 50'000;

void on_a_small_stack(std::function<void()> body) {
    kx_thread_handle thread = kx_thread_create(std::move(body), std::size_t{512} * 1024);
    ASSERT_TRUE(thread);
    thread.join();
}

// Every verb on trees that no recursion would survive.
enum class Lean { left, right, zigzag };

bool leans_left(Lean lean, int level) {
    return lean == Lean::left || (lean == Lean::zigzag && level % 2 == 0);
}

std::unique_ptr<SearchNode> deep_tree(Lean lean, std::int32_t op, int operators) {
    auto tree = word("a");
    for (int i = 0; i < operators; ++i)
        tree = leans_left(lean, i) ? combine(op, std::move(tree), word("a"))
                                   : combine(op, word("a"), std::move(tree));
    return tree;
}

class DeepTreeTest : public testing::TestWithParam<Lean> {};

TEST_P(DeepTreeTest, EveryVerbManagesAnyDepth) {
    on_a_small_stack([lean = GetParam()] {
        auto tree = deep_tree(lean, CombineOp::kAnd, kDeep);
        EXPECT_EQ(tree->weight(), 10 * (kDeep + 1));
        EXPECT_EQ(tree->wire_size(), 2 * kDeep + 4 * (kDeep + 1));
        EXPECT_TRUE(tree->evaluate(Shown({wire::text_tag(wire::kName, "a")})));
        const wire::Bytes bytes = written(*tree);
        EXPECT_EQ(bytes.size(), static_cast<std::size_t>(tree->wire_size()));
        const auto copy = tree->clone();
        EXPECT_EQ(written(*copy), bytes);
        EXPECT_EQ(printed(*copy).size(), std::size_t{9} * kDeep + kDeep + 1);
        std::string keyword;
        SearchNode& root = *tree;
        tree = root.extract_keyword(std::move(tree), keyword);
        EXPECT_EQ(keyword, "a");
        EXPECT_EQ(tree->weight(), 10 * kDeep);
    });
}

TEST_P(DeepTreeTest, EvaluationAnswersAtAnyDepth) {
    const Shown yes({wire::text_tag(wire::kName, "a")});
    const Shown no({wire::text_tag(wire::kName, "b")});
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
        for (int i = 0; i < operators; ++i)
            expected = !leans_left(GetParam(), i) && !expected;
        EXPECT_EQ(deep_tree(GetParam(), CombineOp::kAndNot, operators)->evaluate(yes), expected);
    }
}

INSTANTIATE_TEST_SUITE_P(Shapes, DeepTreeTest,
                         testing::Values(Lean::left, Lean::right, Lean::zigzag));

// The keyword taken out of a tree, and what is left, as "keyword -> printed tree".
std::string extracted(std::unique_ptr<SearchNode> root) {
    Search search = search_of(std::move(root));
    std::string result(search.extract_keyword());
    EXPECT_EQ(result, search.keyword());
    return result + " -> " + printed(*search.root());
}

// Cases that the random ones of the model rarely reach.
TEST(SearchTest, AKeywordIsTheFirstWordAndTheOthersBecomeAChain) {
    const std::string full(255, 'x');
    EXPECT_EQ(extracted(word("sky")), "sky -> *");
    EXPECT_EQ(extracted(word("a b c d")), "a ->  ( d &  ( c & b )  ) ");
    EXPECT_EQ(extracted(word("a-b,c\td e")), "a-b,c\td -> e") << "only blanks separate";
    EXPECT_EQ(extracted(word(full)), full + " -> *");
    EXPECT_EQ(extracted(word(full + "xy b")), full + " ->  ( b & xy ) ");
    EXPECT_EQ(extracted(combine(0, combine(0, word(""), size_above(1)), word("b"))), "b -> \x02>1");
    EXPECT_EQ(extracted(combine(1, word("a"), word("b"))), " ->  ( a | b ) ");
}

}  // namespace
}  // namespace vorrim
