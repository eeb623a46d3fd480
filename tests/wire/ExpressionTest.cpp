// Search expressions as the server evaluates them, and those that it cannot read.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/wire/harness/Datagram.h"
#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

using Names = std::vector<std::string>;

constexpr std::size_t kDeepest = 256;
constexpr std::uint32_t kMinusOne = 0xFFFFFFFF;

// Expressions that cannot be read, each with something behind it that must not be taken for its
// end.
std::vector<Bytes> unreadable() {
    return {
        Bytes(),                            // nothing
        hex("05"),                          // no such kind
        hex("FF 04"),                       //
        hex("00"),                          // an operator without its code
        hex("00 00"),                       // without children
        hex("00 00 04"),                    // without a right child
        hex("00 00 04 05"),                 // with an unknown right child
        hex("00 00 05 04"),                 // and left child
        hex("01"),                          // a text without its count
        hex("01 05"),                       // with half a count
        hex("01 05 00 61 62 63 64"),        // cut short
        hex("01 FF FF").fill(0xFFFF, 'a'),  // of a length that is none
        hex("02 01 00 61"),                 // a value without a tag name
        hex("02 01 00 61 05 00 61"),        // a tag name cut short
        hex("03 01 00 00"),                 // a number cut short
        hex("03 01 00 00 00"),              // without a code
        hex("03 01 00 00 00 00 03 00 61"),  // a tag name cut short
        leaning_left(kDeepest + 1, anything()),
        leaning_right(kDeepest + 1, anything()),
        leaning_right(5000, anything()),
        Bytes().fill(60000, 0),  // operators all the way down
    };
}

class Expression : public ::testing::Test {
protected:
    // By hash, so that a search of everything meets them in this order.
    void SetUp() override {
        std::vector<Record> files = {file(hash_of(1), "one", 5), file(hash_of(2), "two", 10),
                                     file(hash_of(3), "three", kMinusOne)};
        files[0].tags.push_back(text_tag("Artist", "Alpha BETA"));
        files[1].tags.push_back(int_tag(kSize, 20));  // a second size
        files[1].tags.push_back(text_tag("artist", "gamma"));
        files[2].tags.push_back(int_tag("Artist", 7));
        client_.publish(files);
    }
    Names found(const Bytes& expression) { return names(client_.search(expression).records); }
    // Small letters, and "or nothing" around it: never a keyword, always a look at every file.
    Names evaluated(const Bytes& expression) {
        return found(joined(Op::either, expression, tag_is("none", Is::equal, 0)));
    }

    const ServerProcess server_{"verbose=true"};
    const WireClient client_ = WireClient::high(server_);
};

TEST_F(Expression, OperatorsFollowTheirTable) {
    const Bytes yes = anything();
    const Bytes no = tag_is("none", Is::equal, 0);
    const Names all = {"one", "two", "three"};
    struct Row {
        Op op;
        bool both, left_only, right_only, neither;
    };
    for (const Row& row :
         {Row{Op::both, true, false, false, false}, Row{Op::either, true, true, true, false},
          Row{Op::but_not, false, true, false, false}, Row{Op::one_of, false, true, true, false},
          Row{Op::only_right, false, false, true, false}}) {
        const int op = static_cast<int>(row.op);
        EXPECT_EQ(evaluated(joined(row.op, yes, yes)), row.both ? all : Names{}) << op;
        EXPECT_EQ(evaluated(joined(row.op, yes, no)), row.left_only ? all : Names{}) << op;
        EXPECT_EQ(evaluated(joined(row.op, no, yes)), row.right_only ? all : Names{}) << op;
        EXPECT_EQ(evaluated(joined(row.op, no, no)), row.neither ? all : Names{}) << op;
        EXPECT_EQ(found(joined(row.op, yes, yes)), row.both ? all : Names{}) << op;
    }
}

TEST_F(Expression, AnUnknownOperatorIsReadAndNeverTrue) {
    for (const std::uint32_t op : {5U, 255U})
        EXPECT_EQ(found(Bytes().u8(0).u8(op).add(anything()).add(anything())), Names{});
    server_.wait_for_output("Unknown Operation in Search");
    EXPECT_EQ(found(joined(Op::either, hex("00 09 04 04"), words("two"))), Names{"two"});
}

TEST_F(Expression, NumbersCompareSignedAndAnyTagOfTheNameWillDo) {
    EXPECT_EQ(found(tag_is(kSize, Is::equal, 5)), Names{"one"});
    EXPECT_EQ(found(tag_is(kSize, Is::equal, 20)), Names{"two"});
    EXPECT_EQ(found(tag_is(kSize, Is::above, 5)), Names{"two"});
    EXPECT_EQ(found(tag_is(kSize, Is::above, 10)), Names{"two"});
    EXPECT_EQ(found(tag_is(kSize, Is::below, 5)), Names{"three"});
    EXPECT_EQ(found(tag_is(kSize, Is::below, 0)), Names{"three"});
    EXPECT_EQ(found(tag_is(kSize, Is::at_least, 10)), Names{"two"});
    EXPECT_EQ(found(tag_is(kSize, Is::at_most, kMinusOne)), Names{"three"});
    EXPECT_EQ(found(tag_is(kSize, Is::at_most, 5)), (Names{"one", "three"}));
    EXPECT_EQ(found(tag_is(kSize, Is::not_, 10)), (Names{"one", "two", "three"}));
    EXPECT_EQ(found(tag_is(kSize, Is::above, 0x80000000)), (Names{"one", "two", "three"}));
}

TEST_F(Expression, AnUnknownComparisonIsReadAndNeverTrue) {
    EXPECT_EQ(found(hex("03 05 00 00 00 06 01 00 02")), Names{});
    server_.wait_for_output("Unknown Operation in SN_IntTagCompare");
    EXPECT_EQ(found(hex("03 05 00 00 00 FF 01 00 02")), Names{});
}

TEST_F(Expression, TagNamesAndKindsMustAgreeExactly) {
    EXPECT_EQ(found(tag_contains("Artist", "a")), Names{"one"});
    EXPECT_EQ(found(tag_contains("artist", "a")), Names{"two"});
    EXPECT_EQ(found(tag_contains("ARTIST", "a")), Names{});
    EXPECT_EQ(found(tag_is("Artist", Is::equal, 7)), Names{"three"});
    EXPECT_EQ(found(tag_is(kName, Is::not_, 7)), Names{});  // there only as a text
    EXPECT_EQ(found(tag_contains(kSize, "")), Names{});     // there only as a number
}

TEST_F(Expression, TextsMatchWhateverTheirCapitals) {
    EXPECT_EQ(found(tag_contains("Artist", "a beta")), Names{"one"});
    EXPECT_EQ(found(tag_contains("Artist", "ALPHA")), Names{"one"});
    EXPECT_EQ(found(tag_contains("Artist", "")), Names{"one"});
    EXPECT_EQ(evaluated(words("PHA b")), Names{"one"});
    EXPECT_EQ(evaluated(words("")), (Names{"one", "two", "three"}));
}

TEST_F(Expression, OnlyLettersAToZHaveCapitals) {
    client_.publish({file(hash_of(9), "\xC4pfel [x]")});
    EXPECT_EQ(evaluated(words("\xC4pfel")), Names{"\xC4pfel [x]"});
    EXPECT_EQ(evaluated(words("\xE4pfel")), Names{});
    EXPECT_EQ(evaluated(words("{x}")), Names{});
    EXPECT_EQ(found(words("\xC4PFEL")), Names{"\xC4pfel [x]"});  // as a keyword, too
}

TEST_F(Expression, TheUnnamedTagIsFoundByNoName) {
    client_.publish({Record{hash_of(9), 0, 0, {text_tag("n", "secret"), int_tag("n", 3)}}});
    EXPECT_EQ(client_.search(tag_contains("n", "secret")).records.size(), 0U);
    EXPECT_EQ(client_.search(tag_is("n", Is::equal, 3)).records.size(), 0U);
    EXPECT_EQ(client_.search(words("secret")).records.size(), 1U);
    client_.publish({Record{hash_of(10), 0, 0, {text_tag("", "empty"), int_tag("", 3)}}});
    EXPECT_EQ(client_.search(tag_contains("", "empty")).records.size(), 1U);
    EXPECT_EQ(client_.search(tag_is("", Is::equal, 3)).records.size(), 1U);
}

TEST_F(Expression, WhatCannotBeReadClosesAFileSearch) {
    for (const Bytes& expression : unreadable()) {
        const WireClient asker(server_);
        asker.send(search_files(expression));
        asker.expect_closed();
    }
}

TEST_F(Expression, WhatCannotBeReadLeavesAUserSearchUnanswered) {
    for (const Bytes& expression : unreadable())
        client_.send(search_users(expression));
    client_.expect_nothing();
    EXPECT_EQ(client_.users(anything()).size(), 1U);
}

TEST_F(Expression, WhatCannotBeReadLeavesDatagramsUnanswered) {
    const Datagram asker(server_);
    for (const Bytes& expression : unreadable())
        for (const Bytes& request : {udp_search_files(expression), udp_search_users(expression)}) {
            constexpr std::size_t kLargestDatagram = 3072;  // more never reaches the reader
            if (request.size() > kLargestDatagram) continue;
            asker.send(request);
            asker.expect_nothing();
        }
}

TEST_F(Expression, TheDeepestTreeThatIsReadHas256Levels) {
    const Bytes leaf = words("two");
    EXPECT_EQ(found(leaning_left(kDeepest, leaf)), Names{"two"});
    EXPECT_EQ(found(leaning_right(kDeepest, leaf)), Names{"two"});
    EXPECT_EQ(found(leaning_left(kDeepest, leaf, Op::either)), Names{"two"});
    EXPECT_EQ(found(leaning_right(kDeepest, leaf, Op::either)), Names{"two"});
}

TEST_F(Expression, AWideTreeIsNoDeeperForIt) {
    Bytes tree = words("two");
    for (int level = 0; level < 13; ++level)
        tree = joined(level % 2 == 0 ? Op::either : Op::both, tree, tree);
    EXPECT_EQ(found(tree), Names{"two"});
}

TEST_F(Expression, ATextOfThirtyThousandWordsIsOneTerm) {
    std::string text = "two";
    for (int i = 1; i < 15000; ++i)
        text += i % 2 == 0 ? " two" : " w ";
    ASSERT_LT(text.size(), 0xFFFFU);
    EXPECT_EQ(found(words(text)), Names{"two"});
    std::string short_words = "two";
    for (int i = 1; i < 30000; ++i)
        short_words += " o";
    EXPECT_EQ(found(words(short_words)), Names{"two"});
    EXPECT_EQ(found(words(short_words + " z")), Names{});
    EXPECT_EQ(found(joined(Op::both, words(short_words), tag_is(kSize, Is::above, 5))),
              Names{"two"});
    EXPECT_EQ(found(words(std::string(60000, ' ') + "two")), Names{"two"});
}

}  // namespace
}  // namespace vorrim::wire
