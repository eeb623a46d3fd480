// Search expressions as the server evaluates them, and those that it cannot read.
#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

constexpr std::size_t kDeepest = 256;
constexpr std::uint32_t kMinusOne = 0xFFFFFFFF;

class Expression : public ::testing::Test {
protected:
    // By hash, so that a search of everything meets them in this order.
    void SetUp() override {
        std::vector<Record> files = {file(hash_of(1), "one", 5), file(hash_of(2), "two", 10),
                                     file(hash_of(3), "three", kMinusOne)};
        files[0].tags.push_back(text_tag("Artist", "Alpha \xC4 [BETA]"));
        files[1].tags.push_back(int_tag(kSize, 20));  // a second size
        files[1].tags.push_back(text_tag("artist", "gamma"));
        files[2].tags.push_back(int_tag("Artist", 7));
        files[2].tags.push_back(text_tag("n", "secret"));  // a tag without a name
        client_.publish(files);
    }
    Names found(const Bytes& expression) { return names(client_.search(expression).records); }

    const ServerProcess server_{"verbose=true"};
    const WireClient client_ = WireClient::high(server_);
};

TEST_F(Expression, IsEvaluatedAsItsPartsSay) {
    const Bytes left = tag_is(kSize, Is::above, 0);  // one, two
    const Bytes right = tag_is(kSize, Is::not_, 5);  // two, three
    const Bytes nothing = tag_is("none", Is::equal, 0);
    const std::vector<std::pair<Bytes, Names>> rows = {
        {joined(Op::both, left, right), {"two"}},
        {joined(Op::either, left, right), {"one", "two", "three"}},
        {joined(Op::but_not, left, right), {"one"}},
        {joined(Op::one_of, left, right), {"one", "three"}},
        {joined(Op::only_right, left, right), {"three"}},
        // Unknown operators and comparisons are read and never true.
        {joined(Op::either, hex("00 09 04 04"), words("two")), {"two"}},
        {hex("00 FF 04 04"), {}},
        {hex("03 05 00 00 00 06 01 00 02"), {}},
        // Numbers compare signed, and any tag of the name will do.
        {tag_is(kSize, Is::equal, 20), {"two"}},
        {tag_is(kSize, Is::below, 0), {"three"}},
        {tag_is(kSize, Is::at_least, 20), {"two"}},
        {tag_is(kSize, Is::at_most, 5), {"one", "three"}},
        {tag_is(kSize, Is::above, 0x80000000), {"one", "two", "three"}},
        // The names and kinds of tags agree exactly.
        {tag_contains("Artist", "a"), {"one"}},
        {tag_contains("artist", ""), {"two"}},
        {tag_is("Artist", Is::equal, 7), {"three"}},
        {tag_is(kName, Is::not_, 7), {}},
        {tag_contains(kSize, ""), {}},
        {tag_contains("n", "secret"), {}},
        {words("secret"), {"three"}},
        // Texts match whatever their capitals, of which A to Z have any.
        {joined(Op::either, words("pha \xC4 [b"), nothing), {"one"}},
        {joined(Op::either, words("PHA \xE4"), nothing), {}},
        {joined(Op::either, words("{beta"), nothing), {}},
        {words(""), {"one", "two", "three"}},
    };
    for (const auto& [expression, names] : rows)
        EXPECT_EQ(found(expression), names) << ::testing::PrintToString(expression);
    server_.wait_for_output("Unknown Operation in Search");
    server_.wait_for_output("Unknown Operation in SN_IntTagCompare");
}

TEST_F(Expression, WhatCannotBeReadClosesAFileSearchAndIsElsewhereNotAnswered) {
    constexpr std::size_t kLargestDatagram = 3072;  // more never reaches the reader
    const Datagram asker(server_);
    std::vector<Bytes> unreadable = {
        hex("05"),                          // no such kind
        hex("FF 04"),                       //
        hex("00 00 04 05"),                 // an operator with an unknown right child
        hex("00 00 05 04"),                 // and left child
        hex("01 FF FF").fill(0xFFFF, 'a'),  // a text of a length that is none
        leaning_left(kDeepest + 1, anything()),
        leaning_right(kDeepest + 1, anything()),
        Bytes().fill(60000, 0),  // operators all the way down
        joined(Op::both, doubled(15, Op::both, anything()), anything()),  // one node too many
    };
    const Bytes whole = joined(Op::both, joined(Op::either, words("ab"), tag_contains("cd", "ef")),
                               tag_is("gh", Is::equal, 1));
    for (std::size_t length = 0; length < whole.size(); ++length)
        unreadable.push_back(whole.first(length));
    // Each has something behind it that must not be taken for its end.
    for (const Bytes& expression : unreadable) {
        SCOPED_TRACE(::testing::PrintToString(expression));
        const WireClient searcher(server_);
        searcher.send(search_files(expression));
        searcher.expect_closed();
        EXPECT_TRUE(client_.answers(search_users(expression)).empty());
        for (const Bytes& request : {udp_search_files(expression), udp_search_users(expression)}) {
            if (request.size() > kLargestDatagram) continue;
            EXPECT_TRUE(asker.all_answers(request).empty());
        }
    }
}

TEST_F(Expression, MayBeDeepAndWideAndOfThirtyThousandWords) {
    const Bytes wide =
        doubled(8, Op::either, doubled(7, Op::both, words("two")));  // 2^16 - 1 nodes
    std::string many = "two";
    for (int i = 1; i < 30000; ++i)
        many += " o";
    for (const Bytes& expression :
         {leaning_left(kDeepest, words("two")), leaning_right(kDeepest, words("two"), Op::either),
          wide, words(many), words(std::string(60000, ' ') + "two")})
        EXPECT_EQ(found(expression), Names{"two"}) << ::testing::PrintToString(expression);
    EXPECT_EQ(found(words(many + " z")), Names{});
}

}  // namespace
}  // namespace vorrim::wire
