#include <gtest/gtest.h>

#include "app/FilterExpressions.h"
#include "client/Filter.h"
#include "tests/search/SearchFixture.h"

namespace vorrim {
namespace {

using test::Record;

// The printed tree of a filter, or "bad".
std::string filter(std::string_view text) {
    const auto search = parseFilter(text);
    return search ? test::printed(*search->root()) : "bad";
}

// The printed node of a term, or "none".
std::string term(std::string_view text) {
    const auto node = parseFilterTerm(text);
    return node ? test::printed(*node) : "none";
}

NodeKind kind_of_term(std::string_view text) {
    return parseFilterTerm(text)->kind();
}

TEST(FilterExpressionsTest, OneWordIsASubstringAsWritten) {
    EXPECT_EQ(term("mp3"), "mp3");
    EXPECT_EQ(term("  MP3"), "MP3");
    EXPECT_EQ(kind_of_term("mp3"), NodeKind::substring);
    EXPECT_EQ(kind_of_term("#SIZE"), NodeKind::substring);
    EXPECT_EQ(kind_of_term(""), NodeKind::substring);
    EXPECT_EQ(term(""), "");
}

TEST(FilterExpressionsTest, BlanksBehindASingleWordChangeNothing) {
    EXPECT_EQ(term(" mp3 "), "mp3");
    EXPECT_EQ(term("mp3   "), "mp3");
    EXPECT_EQ(kind_of_term(" mp3 "), NodeKind::substring);
    EXPECT_EQ(filter("( mp3 )"), "mp3");
}

TEST(FilterExpressionsTest, AStarIsEveryRecord) {
    EXPECT_EQ(kind_of_term("*"), NodeKind::all);
    EXPECT_EQ(kind_of_term("*mp3"), NodeKind::all);
    EXPECT_EQ(kind_of_term("mp3*"), NodeKind::substring);
}

TEST(FilterExpressionsTest, OnlyBlanksAreNoTerm) {
    EXPECT_EQ(term(" "), "none");
    EXPECT_EQ(term("    "), "none");
}

TEST(FilterExpressionsTest, FieldsMeanTheirTagAndOtherNamesThemselves) {
    EXPECT_EQ(term("#FILENAME x"), "\x01=x");
    EXPECT_EQ(term("#SIZE x"), "\x02=x");
    EXPECT_EQ(term("#TYPE x"), "\x03=x");
    EXPECT_EQ(term("#FORMAT x"), "\x04=x");
    EXPECT_EQ(term("#DESC x"), "\x0B=x");
    EXPECT_EQ(term("#AVAIL x"), "\x15=x");
    EXPECT_EQ(term("#size x"), "#size=x");
    EXPECT_EQ(term("Artist x"), "Artist=x");
}

TEST(FilterExpressionsTest, TwoWordsAreATextComparison) {
    EXPECT_EQ(kind_of_term("#TYPE Audio"), NodeKind::string_tag_compare);
    EXPECT_EQ(term("  #TYPE   Audio"), "\x03=Audio");
    EXPECT_EQ(term("#TYPE Audio "), "none") << "a blank behind the value asks for a number";
}

TEST(FilterExpressionsTest, ThreeWordsAreAnIntegerComparison) {
    EXPECT_EQ(kind_of_term("#SIZE > 650"), NodeKind::int_tag_compare);
    EXPECT_EQ(term("#SIZE > 650"), "\x02>650");
    EXPECT_EQ(term("#SIZE < 650"), "\x02<650");
    EXPECT_EQ(term("#SIZE >= 650"), "\x02>=650");
    EXPECT_EQ(term("#SIZE <= 650"), "\x02<=650");
    EXPECT_EQ(term("#SIZE != 650"), "\x02!=650");
    EXPECT_EQ(term("#SIZE = 650"), "\x02=650");
    EXPECT_EQ(term("#SIZE => 650 or so"), "\x02=650");
}

TEST(FilterExpressionsTest, NumbersAreReadAsFarAsTheyGo) {
    EXPECT_EQ(term("#SIZE > -12x"), "\x02>-12");
    EXPECT_EQ(term("#SIZE > +7"), "\x02>7");
    EXPECT_EQ(term("#SIZE > many"), "\x02>0");
    EXPECT_EQ(term("#SIZE > 4294967295"), "\x02>-1") << "as a tag of that size compares";
    EXPECT_EQ(term("#SIZE > 99999999999999999999999").substr(0, 2), "\x02>");
}

TEST(FilterExpressionsTest, TermsCombineFromLeftToRight) {
    EXPECT_EQ(filter("mp3"), "mp3");
    EXPECT_EQ(filter("((mp3))"), "mp3");
    EXPECT_EQ(filter("(a)|(b)"), " ( a | b ) ");
    EXPECT_EQ(filter("(a)!(b)x(c)&(d)"), " (  (  ( a ! b )  x c )  & d ) ");
    EXPECT_EQ(filter("(a) | (b)"), " ( a & b ) ") << "blanks make it another operator";
    EXPECT_EQ(filter("(a)||(b)"), " ( a & b ) ");
    EXPECT_EQ(filter("a(b)c"), " ( a & c ) ") << "the second token is an operator";
}

TEST(FilterExpressionsTest, AnOperatorAfterTheLastTermHasNoEffect) {
    EXPECT_EQ(filter("(a)(b)"), "a");
    EXPECT_EQ(filter("(a)|"), "a");
}

TEST(FilterExpressionsTest, FiltersWithoutTermOrWithANoneAreBad) {
    EXPECT_EQ(filter("()"), "bad");
    EXPECT_EQ(filter("((("), "bad");
    EXPECT_EQ(filter("( )"), "bad");
    EXPECT_EQ(filter("(a)|(#TYPE Audio )"), "bad");
    EXPECT_EQ(filter(""), "") << "one empty term";
}

TEST(FilterExpressionsTest, LongRunsAreCutIntoTokens) {
    const std::string full(255, 'a');
    EXPECT_EQ(filter("(" + full + ")"), full);
    EXPECT_EQ(filter("(" + full + "|)(b)"), " ( " + full + " | b ) ")
        << "what is over is the operator";
}

TEST(FilterExpressionsTest, FiltersRefuseWhatMatches) {
    const auto refuses = [](std::string_view text, RecordView record) {
        return Filter(std::move(*parseFilter(text))).matches(record);
    };
    const Record large = Record().text("\x01", "Some.MP3").integer("\x02", 651);
    const Record exact = Record().integer("\x02", 650);
    EXPECT_TRUE(refuses("(#SIZE > 650)", large));
    EXPECT_FALSE(refuses("(#SIZE > 650)", exact));
    EXPECT_TRUE(refuses("*", exact));
    EXPECT_TRUE(refuses("mp3", large));
    EXPECT_FALSE(refuses("MP3", large)) << "only the record is folded";
    EXPECT_FALSE(refuses("(#FILENAME Some)", large));
    EXPECT_TRUE(refuses("(#FILENAME some)", large));
    EXPECT_TRUE(refuses("", large)) << "every text holds the empty one";
    EXPECT_FALSE(refuses("", exact));
}

TEST(FilterExpressionsTest, AFilterPrintsItsExpression) {
    std::string buffer;
    Filter(std::move(*parseFilter("(#SIZE > 650)|(mp3)"))).print(buffer);
    EXPECT_EQ(buffer, "search(  ( \x02>650 | mp3 )  )");
}

TEST(FilterExpressionsTest, ThousandsOfTermsAreNoBurden) {
    std::string text = "(zzz)";
    for (int i = 0; i < 20'000; ++i)
        text += "|(zzz)";
    const Filter many(std::move(*parseFilter(text + "|(mp3)")));
    EXPECT_TRUE(many.matches(Record().text("\x01", "some.mp3")));
    EXPECT_FALSE(many.matches(Record().text("\x01", "some.ogg")));
}

}  // namespace
}  // namespace vorrim
