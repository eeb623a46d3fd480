#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "client/index/keyword_hash.h"
#include "tests/search/SearchFixture.h"

namespace vorrim {
namespace {

using test::Record;

std::vector<std::uint32_t> words_of(RecordView record) {
    const KeywordHashes words = keywords_of(record);
    return {words.begin(), words.end()};
}

std::vector<std::uint32_t> hashes(std::initializer_list<std::string> words) {
    std::vector<std::uint32_t> result;
    for (const std::string& word : words)
        result.push_back(keyword_hash(word));
    return result;
}

std::vector<std::uint32_t> words_of_text(const std::string& text) {
    return words_of(Record().text("\x01", text));
}

TEST(IndexKeywordHash, HasTheValuesThatEveryServerOfTheNetworkComputes) {
    EXPECT_EQ(keyword_hash("a"), 0xCA2E9442u);
    EXPECT_EQ(keyword_hash("abc"), 0xED131F5Bu);
    EXPECT_EQ(keyword_hash("ABC"), 0xED131F5Bu);
    EXPECT_EQ(keyword_hash("the"), 0xF9B5DBC0u);            // differs with unsigned shifts
    EXPECT_EQ(keyword_hash(""), 1u);                        // 0 names no word
    EXPECT_NE(keyword_hash("\xC9"), keyword_hash("\xE9"));  // only A to Z are folded
}

TEST(IndexKeywordHash, WordsEndAtSeparatorsOnly) {
    EXPECT_EQ(words_of_text("Some_File-name.mp3"), hashes({"some", "file", "name", "mp3"}));
    EXPECT_EQ(words_of_text(" ,_-.(){}[]!?<>:\\/\t\n"), hashes({}));
    EXPECT_EQ(words_of_text("a b'c;d=e+f&g\rh#i"), hashes({"a", "b'c;d=e+f&g\rh#i"}));
    for (const char separator : kWordSeparators)
        EXPECT_EQ(words_of_text(std::string("x") + separator + "y"), hashes({"x", "y"}));
    EXPECT_EQ(words_of_text(""), hashes({}));
    EXPECT_EQ(words_of_text("...word"), hashes({"word"}));
}

TEST(IndexKeywordHash, ARepeatedWordCountsOnce) {
    EXPECT_EQ(words_of_text("foo foo.txt FOO"), hashes({"foo", "txt"}));
}

TEST(IndexKeywordHash, TheFirstTenDistinctWordsCount) {
    EXPECT_EQ(words_of_text("a b c d e f a b g h i j k l"),
              hashes({"a", "b", "c", "d", "e", "f", "g", "h", "i", "j"}));
    EXPECT_EQ(
        words_of(Record().text("\x01", "a b c d e f").text("\x03", "g h i j k").text("z", "l")),
        hashes({"a", "b", "c", "d", "e", "f", "g", "h", "i", "j"}));
}

TEST(IndexKeywordHash, ALongRunGoesOnAsTheNextWord) {
    EXPECT_EQ(words_of_text(std::string(300, 'w')),
              hashes({std::string(255, 'w'), std::string(45, 'w')}));
    EXPECT_EQ(words_of_text(std::string(255, 'w')), hashes({std::string(255, 'w')}));
    EXPECT_EQ(words_of_text(std::string(255, 'w') + ".x"), hashes({std::string(255, 'w'), "x"}));
    EXPECT_EQ(words_of_text(std::string(256, 'w')), hashes({std::string(255, 'w'), "w"}));
}

TEST(IndexKeywordHash, OnlyTextTagsHaveWords) {
    EXPECT_EQ(words_of(Record().integer("\x02", 0x41424344).hash("\x07").text("n", "named")),
              hashes({"named"}));
}

}  // namespace
}  // namespace vorrim
