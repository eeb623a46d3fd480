// File searches by a word, on the keyword index: which files a word finds, in which order, and
// where a batch ends.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

using Names = std::vector<std::string>;

std::string numbered(std::uint32_t number) {
    return "common word " + std::to_string(number);
}

// Files first to last, all with the words "common" and "word", in an order that no table has.
std::vector<Record> numbered_files(std::uint32_t first, std::uint32_t last) {
    std::vector<Record> files;
    for (std::uint32_t i = first; i <= last; ++i)
        files.push_back(file(hash_of(i * 2654435761U), numbered(i), i));
    return files;
}

Names numbers(std::uint32_t first, std::uint32_t last) {
    Names names;
    for (std::uint32_t i = first; i <= last; ++i)
        names.push_back(numbered(i));
    return names;
}

class KeywordSearch : public ::testing::Test {
protected:
    void share(const Names& names) {
        std::vector<Record> files;
        for (const std::string& name : names)
            files.push_back(file(hash_of(++shared_), name));
        client_.publish(files);
    }
    Names found(const Bytes& expression) { return names(client_.search(expression).records); }

    const ServerProcess server_;
    const WireClient client_ = WireClient::high(server_);
    std::uint32_t shared_ = 0;
};

TEST_F(KeywordSearch, ABatchHolds201AndGoesOnWhereItStopped) {
    client_.publish(numbered_files(1, 250));
    const Results first = client_.search(words("common"));
    EXPECT_EQ(names(first.records), numbers(1, 201));
    EXPECT_TRUE(first.more);
    const Results second = client_.more();
    EXPECT_EQ(names(second.records), numbers(202, 250));
    EXPECT_FALSE(second.more);
    client_.send(more_results());
    client_.expect_nothing();
}

TEST_F(KeywordSearch, TheLimitIsMetBetween200And201) {
    client_.publish(numbered_files(1, 200));
    const Results all = client_.search(words("common"));
    EXPECT_EQ(all.records.size(), 200U);
    EXPECT_FALSE(all.more);

    client_.publish(numbered_files(201, 201));
    const Results full = client_.search(words("common"));
    EXPECT_EQ(full.records.size(), 201U);
    EXPECT_TRUE(full.more);
    const Results rest = client_.more();
    EXPECT_TRUE(rest.records.empty());
    EXPECT_FALSE(rest.more);
}

TEST_F(KeywordSearch, ThreeBatchesOfASearchWithACondition) {
    client_.publish(numbered_files(1, 1000));
    const Bytes upper_half = joined(Op::both, words("word"), tag_is(kSize, Is::above, 500));
    Results batch = client_.search(upper_half);
    EXPECT_EQ(names(batch.records), numbers(501, 701));
    EXPECT_TRUE(batch.more);
    batch = client_.more();
    EXPECT_EQ(names(batch.records), numbers(702, 902));
    EXPECT_TRUE(batch.more);
    batch = client_.more();
    EXPECT_EQ(names(batch.records), numbers(903, 1000));
    EXPECT_FALSE(batch.more);
}

TEST_F(KeywordSearch, ASearchThatGoesOnSeesWhatWasPublishedMeanwhile) {
    client_.publish(numbered_files(1, 210));
    EXPECT_TRUE(client_.search(words("common")).more);
    client_.publish(numbered_files(211, 215));
    EXPECT_EQ(names(client_.more().records), numbers(202, 215));
}

TEST_F(KeywordSearch, EachConnectionGoesOnWithItsOwnSearch) {
    client_.publish(numbered_files(1, 210));
    const WireClient other = WireClient::high(server_);
    EXPECT_TRUE(client_.search(words("common")).more);
    EXPECT_TRUE(other.search(words("word")).more);
    EXPECT_FALSE(other.search(words("missing")).more);
    EXPECT_EQ(names(client_.more().records), numbers(202, 210));
    other.send(more_results());
    other.expect_nothing();
}

TEST_F(KeywordSearch, ANewSearchReplacesTheOld) {
    client_.publish(numbered_files(1, 210));
    EXPECT_TRUE(client_.search(words("common")).more);
    EXPECT_EQ(found(words("209")), Names{numbered(209)});
    client_.send(more_results());
    client_.expect_nothing();
}

TEST_F(KeywordSearch, AUserSearchEndsAFileSearchEvenAnUnreadableOne) {
    client_.publish(numbered_files(1, 210));
    EXPECT_TRUE(client_.search(words("common")).more);
    EXPECT_EQ(client_.ask(search_users(words("nobody"))), hex("43 00 00 00 00"));
    client_.send(more_results());
    client_.expect_nothing();

    EXPECT_TRUE(client_.search(words("common")).more);
    client_.send(search_users(hex("05")));
    client_.send(more_results());
    client_.expect_nothing();
}

TEST_F(KeywordSearch, AWordIsFoundWholeInAnyLetterCase) {
    share({"Some_File-name.mp3", "SOME other", "awesome"});
    EXPECT_EQ(found(words("some")), (Names{"Some_File-name.mp3", "SOME other"}));
    EXPECT_EQ(found(words("SoMe")), (Names{"Some_File-name.mp3", "SOME other"}));
    EXPECT_EQ(found(words("mp3")), Names{"Some_File-name.mp3"});
    EXPECT_EQ(found(words("som")), Names{});
    EXPECT_EQ(found(words("some_file")), Names{});  // only blanks divide a searched text
}

TEST_F(KeywordSearch, EverySeparatorDividesWords) {
    const std::string separators = " ,_-.(){}[]!?<>:\\/\t\n";
    for (std::size_t i = 0; i < separators.size(); ++i)
        share({"left" + std::string(1, separators[i]) + "right" + std::to_string(i)});
    EXPECT_EQ(found(words("left")).size(), separators.size());
    share({"left+right", "left'right", "left;right"});
    EXPECT_EQ(found(words("left")).size(), separators.size());
    EXPECT_EQ(found(words("left+right")), Names{"left+right"});
}

TEST_F(KeywordSearch, OnlyTheFirstTenWordsOfAFileAreIndexed) {
    share({"a b c d e f g h i j k l", "a A a b c d e f g h i j k"});
    EXPECT_EQ(found(words("j")).size(), 2U);
    EXPECT_EQ(found(words("k")), Names{});
    EXPECT_EQ(found(words("a k")).size(), 2U);  // the second word is looked for in the text
}

TEST_F(KeywordSearch, WordsComeFromEveryTextInTagOrder) {
    Record record{hash_of(1), 0, 0, {}};
    record.tags = {text_tag("Artist", "Some Body"), int_tag(kSize, 42), text_tag(kName, "Title"),
                   hash_tag("h", hash_of(0x74696C65)), text_tag(kDescription, "1 2 3 4 5 6 7 8")};
    client_.publish({record});
    for (const char* word : {"some", "body", "title", "1", "7"})
        EXPECT_EQ(client_.search(words(word)).records.size(), 1U) << word;
    for (const char* word : {"8", "42"})
        EXPECT_EQ(client_.search(words(word)).records.size(), 0U) << word;
}

TEST_F(KeywordSearch, AWordEndsAfter255Letters) {
    const std::string run = std::string(255, 'x') + std::string(45, 'y');
    share({run});
    EXPECT_EQ(found(words(std::string(255, 'x'))), Names{run});
    EXPECT_EQ(found(words(std::string(45, 'y'))), Names{run});
    EXPECT_EQ(found(words(run)), Names{run});  // divided in the same way
    EXPECT_EQ(found(words(std::string(254, 'x'))), Names{});
}

TEST_F(KeywordSearch, TheFirstWordIsTheKeywordAndTheOthersMayBeParts) {
    share({"Blue Sky", "blue skin", "sky blue", "red sky"});
    EXPECT_EQ(found(words("blue sky")), (Names{"Blue Sky", "sky blue"}));
    EXPECT_EQ(found(words("  blue   SK ")), (Names{"Blue Sky", "blue skin", "sky blue"}));
    EXPECT_EQ(found(words("sk blue")), Names{});
    EXPECT_EQ(found(joined(Op::both, words("sky"), words("lu"))), (Names{"Blue Sky", "sky blue"}));
    EXPECT_EQ(found(joined(Op::both, tag_is(kSize, Is::equal, 1000), words("red"))),
              Names{"red sky"});
}

TEST_F(KeywordSearch, BelowOtherOperatorsPartsOfWordsAreFound) {
    share({"blue sky", "deep blues", "red"});
    EXPECT_EQ(found(joined(Op::either, words("blu"), words("RE"))),
              (Names{"blue sky", "deep blues", "red"}));
    EXPECT_EQ(found(joined(Op::either, words("lue sk"), words("nothing"))), Names{"blue sky"});
    EXPECT_EQ(found(joined(Op::but_not, words("blue"), words("deep"))), Names{"blue sky"});
    EXPECT_EQ(
        found(joined(Op::both, words("blue"), joined(Op::but_not, words("s"), words("deep")))),
        Names{"blue sky"});
}

TEST_F(KeywordSearch, WithoutAKeywordEveryFileIsLookedAt) {
    share({"one", "two", "three"});
    EXPECT_EQ(found(anything()), (Names{"one", "two", "three"}));
    EXPECT_EQ(found(words("")), (Names{"one", "two", "three"}));
    EXPECT_EQ(found(tag_contains(kName, "T")), (Names{"two", "three"}));
    EXPECT_EQ(found(tag_is(kSize, Is::at_least, 1)), (Names{"one", "two", "three"}));
}

TEST_F(KeywordSearch, ALaterPublishersNameAddsNoWord) {
    const WireClient other = WireClient::high(server_);
    client_.publish({file(hash_of(1), "first name")});
    other.publish({file(hash_of(1), "second title")});
    EXPECT_EQ(found(words("first")), Names{"first name"});
    EXPECT_EQ(found(words("second")), Names{});
}

TEST_F(KeywordSearch, OrderIsThatOfTheFirstPublication) {
    const WireClient other = WireClient::high(server_);
    client_.publish({file(hash_of(900), "tune z")});
    other.publish({file(hash_of(5), "tune y"), file(hash_of(900), "tune other")});
    client_.publish({file(hash_of(5), "tune again"), file(hash_of(1), "tune x")});
    EXPECT_EQ(found(words("tune")), (Names{"tune z", "tune y", "tune x"}));
}

TEST_F(KeywordSearch, NothingFoundIsAnEmptyAnswer) {
    share({"something"});
    EXPECT_EQ(client_.ask(search_files(words("nothing"))), hex("33 00 00 00 00 00"));
    EXPECT_EQ(client_.ask(
                  search_files(joined(Op::both, words("something"), tag_is(kSize, Is::equal, 1)))),
              hex("33 00 00 00 00 00"));
}

}  // namespace
}  // namespace vorrim::wire
