// The search language, down to the bytes that docs/protocol.md shows.

#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "ExpressionParser.h"
#include "Failure.h"
#include "search/Search.h"
#include "tests/WireForms.h"

namespace vorrim::cli {
namespace {

using Words = std::vector<std::string>;

wire::Bytes bytes_of(const Words& words) {
    kx_memory_file out(64);
    EXPECT_TRUE(parse_expression(words)->write(out));
    return test::bytes_of(out.contents());
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
    for (const char c : text)
        readable += c > 0 && c < 0x20 ? '#' + std::to_string(static_cast<int>(c)) : std::string{c};
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

TEST(ExpressionTest, MatchesTheDocumentedBytes) {
    const std::vector<std::pair<Words, const char*>> rows = {
        {{"abc"}, "01 0300 616263"},
        {{"*"}, "04"},
        {{"blue", "sky", "size>1000"},
         "00 00  00 00  01 0400 626C7565  01 0300 736B79  03 E8030000 01 0100 02"},
        // Denied words hang below an "and", so that the keyword is found.
        {{"linux", "-kernel", "type=image"},
         "00 00  00 00  01 0500 6C696E7578  02 0500 696D616765 0100 03"
         "       00 02  04  01 0600 6B65726E656C"},
        {{"format=mp3", "OR", "format=ogg"},
         "00 01  02 0300 6D7033 0100 04  02 0300 6F6767 0100 04"},
    };
    for (const auto& [words, bytes] : rows)
        EXPECT_EQ(bytes_of(words), wire::hex(bytes));
}

TEST(ExpressionTest, TheTreeFollowsTheWords) {
    const std::vector<std::pair<Words, std::string>> rows = {
        // Words bind stronger than OR, parentheses strongest.
        {{"a", "b", "OR", "c"}, "((a&b)|c)"},
        {{"(a", "OR", "b)", "type=audio"}, "((a|b)&#3=audio)"},
        {{"x", "(b", "|", "c)"}, "(x&(b|c))"},
        {{"-(a", "OR", "b)", "c"}, "(c&(*!(a|b)))"},
        {{"(a", "b)", "AND", "(c", "d)"}, "(((a&b)&c)&d)"},
        // Only denials start from everything.
        {{"-a"}, "(*!a)"},
        {{"-a", "-type=audio"}, "((*!a)!#3=audio)"},
        {{"a", "OR", "-b"}, "(a|(*!b))"},
        {{"--a"}, "a"},
        // A server lists files under whole words only, so a text with separators is led by its
        // first word.
        {{"blue sky"}, "(blue & blue sky)"},
        {{"\"blue sky\"", "ogg"}, "((blue & blue sky) & ogg)"},
        {{"file-name.txt"}, "(file&file-name.txt)"},
        {{"size>5", ".mp3"}, "((mp3&#2>5)&.mp3)"},
        {{std::string(300, 'w')}, '(' + std::string(255, 'w') + '&' + std::string(300, 'w') + ')'},
        {{"a", "b-c"}, "(a&b-c)"},
        // Numbers take suffixes and every comparison.
        {{"size=1"}, "#2=1"},
        {{"size!=1"}, "#2!=1"},
        {{"size<4K"}, "#2<4096"},
        {{"size>=2m"}, "#2>=2097152"},
        {{"size<=1G"}, "#2<=1073741824"},
        {{"SIZE > -1"}, "#2>-1"},
        {{"sources>3"}, "#21>3"},
        {{"size<=2147483647"}, "#2<=2147483647"},
        // Tags of other names keep their case.
        {{"Artist=abba"}, "Artist=abba"},
        {{"bitrate>128"}, "bitrate>128"},
        {{"Artist!=abba"}, "(*!Artist=abba)"},
        {{"name=\"blue sky\""}, "#1=blue sky"},
        // Quotes make anything a text.
        {{"\"a=b\""}, "a=b"},
        {{"\"OR\""}, "OR"},
        {{"-\"blue sky\""}, "(*!blue sky)"},
    };
    for (const auto& [words, tree] : rows)
        EXPECT_EQ(tree_of(words), packed(tree));
}

TEST(ExpressionTest, MistakesAreNamed) {
    const std::string range = " is out of range: numbers lie between -2147483648 and 2147483647";
    const std::vector<std::pair<Words, std::string>> rows = {
        {{}, "nothing to search for"},
        {{" "}, "nothing to search for"},
        {{"..."}, "'...' holds no word to search for"},
        {{"a", "OR"}, "the search ends where a word is expected"},
        {{"OR", "a"}, "a word is expected in front of OR"},
        {{"(a"}, "'(' is never closed"},
        {{"a)"}, "')' closes nothing"},
        {{"()"}, "a word is expected in front of ')'"},
        {{"\"a"}, "a quote is opened and never closed"},
        {{"type>5"}, "'type' is a text: compare it with = or !="},
        {{"size=big"}, "'size' is a number: 'big' is none"},
        {{"size>"}, "'size>' compares with nothing"},
        {{"rate>fast"}, "'rate>fast' needs a number to compare with"},
        {{"size>2G"}, "'2G'" + range},
        {{"size>99999999999999999999"}, "'99999999999999999999'" + range},
        {{"size>9999999999999999K"}, "'9999999999999999K'" + range},
    };
    for (const auto& [words, failure] : rows)
        EXPECT_EQ(failure_of(words), failure);
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
