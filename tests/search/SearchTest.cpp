#include <gtest/gtest.h>

#include "search/Search.h"
#include "tests/search/SearchFixture.h"

namespace vorrim {
namespace {

using test::bytes;
using test::combine;
using test::printed;
using test::read_bytes;
using test::Record;
using test::search_of;
using test::size_above;
using test::word;

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

TEST(SearchTest, ThirtyThousandWordsAreNoBurden) {
    std::string text = "first";
    for (int i = 0; i < 30'000; ++i)
        text += " w";
    ASSERT_LT(text.size(), 0xFFFFU);
    test::on_a_small_stack([&] {
        Search search;
        std::string wire = bytes("\x01") + static_cast<char>(text.size() & 0xFF) +
                           static_cast<char>(text.size() >> 8) + text;
        ASSERT_TRUE(read_bytes(search, wire));
        EXPECT_EQ(search.extract_keyword(), "first");
        EXPECT_TRUE(search.matches(Record().text("\x01", "W")));
        EXPECT_FALSE(search.matches(Record().text("\x01", "v")));
        EXPECT_EQ(search.root()->wire_size(), 30'000 * 4 + 29'999 * 2);
        const auto copy = search.root()->clone();
        EXPECT_EQ(printed(*copy), printed(*search.root()));
        EXPECT_EQ(test::written(*copy).size(), static_cast<std::size_t>(copy->wire_size()));
    });
}

}  // namespace
}  // namespace vorrim
