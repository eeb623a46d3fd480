// The search language, down to the bytes that docs/protocol.md shows.

#include <array>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "ExpressionParser.h"
#include "Failure.h"
#include "base/file/kx_memory_file.h"
#include "search/Search.h"

namespace vorrim::cli {
namespace {

using Words = std::vector<std::string>;

// The wire form in hexadecimal digits, without blanks.
std::string bytes_of(const Words& words) {
    kx_memory_file out(64);
    EXPECT_TRUE(parse_expression(words)->write(out));
    std::string hex;
    for (const std::byte byte : out.contents()) {
        std::array<char, 3> digits{};
        std::snprintf(digits.data(), digits.size(), "%02X", std::to_integer<unsigned>(byte));
        hex += digits.data();
    }
    return hex;
}

std::string packed(std::string spaced) {
    std::erase_if(spaced, [](char c) { return c == ' '; });
    return spaced;
}

// The tree as the server prints it, with the id of a standard tag as #2.
std::string tree_of(const Words& words) {
    std::string text;
    parse_expression(words)->print(text);
    std::string readable;
    for (const char c : text) {
        if (c > 0 && c < 0x20) {
            readable += '#' + std::to_string(static_cast<int>(c));
        } else {
            readable += c;
        }
    }
    return packed(readable);
}

std::string failure_of(const Words& words) {
    try {
        (void)parse_expression(words);
    } catch (const Failure& failure) {
        return failure.line();
    }
    return "no failure";
}

TEST(ExpressionTest, OneWordIsOneNode) {
    EXPECT_EQ(bytes_of({"abc"}), packed("01 0300 616263"));
}

TEST(ExpressionTest, AStarIsEverything) {
    EXPECT_EQ(bytes_of({"*"}), "04");
}

TEST(ExpressionTest, TwoWordsAndASizeMatchTheDocumentedBytes) {
    EXPECT_EQ(bytes_of({"blue", "sky", "size>1000"}),
              packed("00 00  00 00  01 0400 626C7565  01 0300 736B79"
                     "       03 E8030000 01 0100 02"));
}

TEST(ExpressionTest, DeniedWordsHangBelowAnAndSoThatTheKeywordIsFound) {
    EXPECT_EQ(bytes_of({"linux", "-kernel", "type=image"}),
              packed("00 00  00 00  01 0500 6C696E7578  02 0500 696D616765 0100 03"
                     "       00 02  04  01 0600 6B65726E656C"));
}

TEST(ExpressionTest, AlternativesOfFormatsMatchTheDocumentedBytes) {
    EXPECT_EQ(bytes_of({"format=mp3", "OR", "format=ogg"}),
              packed("00 01  02 0300 6D7033 0100 04  02 0300 6F6767 0100 04"));
}

TEST(ExpressionTest, WordsBindStrongerThanOrAndParenthesesStrongest) {
    EXPECT_EQ(tree_of({"a", "b", "OR", "c"}), "((a&b)|c)");
    EXPECT_EQ(tree_of({"(a", "OR", "b)", "type=audio"}), "((a|b)&#3=audio)");
    EXPECT_EQ(tree_of({"x", "(b", "|", "c)"}), "(x&(b|c))");
    EXPECT_EQ(tree_of({"-(a", "OR", "b)", "c"}), "(c&(*!(a|b)))");
    EXPECT_EQ(tree_of({"(a", "b)", "AND", "(c", "d)"}), "(((a&b)&c)&d)");
}

TEST(ExpressionTest, OnlyDenialsStartFromEverything) {
    EXPECT_EQ(tree_of({"-a"}), "(*!a)");
    EXPECT_EQ(tree_of({"-a", "-type=audio"}), "((*!a)!#3=audio)");
    EXPECT_EQ(tree_of({"a", "OR", "-b"}), "(a|(*!b))");
    EXPECT_EQ(tree_of({"--a"}), "a");
}

// A server lists files under whole words only, so a text with separators is led by its first word.
TEST(ExpressionTest, ATextOfSeveralWordsIsLedByItsFirstWord) {
    EXPECT_EQ(tree_of({"blue sky"}), packed("(blue & blue sky)"));
    EXPECT_EQ(tree_of({"\"blue sky\"", "ogg"}), packed("((blue & blue sky) & ogg)"));
    EXPECT_EQ(tree_of({"file-name.txt"}), "(file&file-name.txt)");
    EXPECT_EQ(tree_of({"size>5", ".mp3"}), "((mp3&#2>5)&.mp3)");
    EXPECT_EQ(tree_of({std::string(300, 'w')}),
              '(' + std::string(255, 'w') + '&' + std::string(300, 'w') + ')');
    EXPECT_EQ(tree_of({"a", "b-c"}), "(a&b-c)");
}

TEST(ExpressionTest, TheServerReadsWhatIsSentAndFindsTheKeyword) {
    kx_memory_file out(64);
    ASSERT_TRUE(parse_expression(Words{"-draft", "Blue-Sky", "size>1K"})->write(out));
    kx_memory_file in = kx_memory_file::reading(out.contents());
    Search search;
    ASSERT_TRUE(search.read(in));
    EXPECT_EQ(search.extract_keyword(), "blue");
    std::string left;
    search.print(left);
    EXPECT_EQ(packed(left), "search(((blue-sky&\x02>1024)&(*!draft)))");
}

TEST(ExpressionTest, NumbersTakeSuffixesAndEveryComparison) {
    EXPECT_EQ(tree_of({"size=1"}), "#2=1");
    EXPECT_EQ(tree_of({"size!=1"}), "#2!=1");
    EXPECT_EQ(tree_of({"size<4K"}), "#2<4096");
    EXPECT_EQ(tree_of({"size>=2m"}), "#2>=2097152");
    EXPECT_EQ(tree_of({"size<=1G"}), "#2<=1073741824");
    EXPECT_EQ(tree_of({"SIZE > -1"}), "#2>-1");
    EXPECT_EQ(tree_of({"sources>3"}), "#21>3");
    EXPECT_EQ(tree_of({"size<=2147483647"}), "#2<=2147483647");
}

TEST(ExpressionTest, TagsOfOtherNamesKeepTheirCase) {
    EXPECT_EQ(tree_of({"Artist=abba"}), "Artist=abba");
    EXPECT_EQ(tree_of({"bitrate>128"}), "bitrate>128");
    EXPECT_EQ(tree_of({"Artist!=abba"}), "(*!Artist=abba)");
    EXPECT_EQ(tree_of({"name=\"blue sky\""}), packed("#1=blue sky"));
}

TEST(ExpressionTest, QuotesMakeAnythingAText) {
    EXPECT_EQ(tree_of({"\"a=b\""}), "a=b");
    EXPECT_EQ(tree_of({"\"OR\""}), "OR");
    EXPECT_EQ(tree_of({"-\"blue sky\""}), packed("(*!blue sky)"));
}

TEST(ExpressionTest, MistakesAreNamed) {
    EXPECT_EQ(failure_of({}), "nothing to search for");
    EXPECT_EQ(failure_of({" "}), "nothing to search for");
    EXPECT_EQ(failure_of({"..."}), "'...' holds no word to search for");
    EXPECT_EQ(failure_of({"a", "OR"}), "the search ends where a word is expected");
    EXPECT_EQ(failure_of({"OR", "a"}), "a word is expected in front of OR");
    EXPECT_EQ(failure_of({"(a"}), "'(' is never closed");
    EXPECT_EQ(failure_of({"a)"}), "')' closes nothing");
    EXPECT_EQ(failure_of({"()"}), "a word is expected in front of ')'");
    EXPECT_EQ(failure_of({"\"a"}), "a quote is opened and never closed");
    EXPECT_EQ(failure_of({"type>5"}), "'type' is a text: compare it with = or !=");
    EXPECT_EQ(failure_of({"size=big"}), "'size' is a number: 'big' is none");
    EXPECT_EQ(failure_of({"size>"}), "'size>' compares with nothing");
    EXPECT_EQ(failure_of({"rate>fast"}), "'rate>fast' needs a number to compare with");
    const std::string range = " is out of range: numbers lie between -2147483648 and 2147483647";
    EXPECT_EQ(failure_of({"size>2G"}), "'2G'" + range);
    EXPECT_EQ(failure_of({"size>99999999999999999999"}), "'99999999999999999999'" + range);
    EXPECT_EQ(failure_of({"size>9999999999999999K"}), "'9999999999999999K'" + range);
}

TEST(ExpressionTest, WhatIsAcceptedStaysReadableForTheServer) {
    const std::string open(kDeepestParentheses, '(');
    const std::string close(kDeepestParentheses, ')');
    Words deep;
    for (std::size_t i = 0; i < kMostTerms - 1; ++i)
        deep.push_back(i % 2 == 0 ? "a" : "-b");
    std::string nested;
    for (std::size_t i = 0; i < kDeepestParentheses; ++i)
        nested += "-(";
    deep.push_back(nested + "c" + close);
    kx_memory_file out(64);
    ASSERT_TRUE(parse_expression(deep)->write(out));
    kx_memory_file in = kx_memory_file::reading(out.contents());
    EXPECT_TRUE(Search().read(in));

    EXPECT_EQ(failure_of({open + "(a)" + close}), "the parentheses are nested too deep");
    EXPECT_EQ(failure_of(Words(kMostTerms + 1, "a")), "a search holds at most 100 words");
}

}  // namespace
}  // namespace vorrim::cli
