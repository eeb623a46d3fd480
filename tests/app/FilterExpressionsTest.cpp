// The text language of filters, as the trees that it makes. What they do to published files is the
// wire tests' matter.
#include <gtest/gtest.h>

#include "app/FilterExpressions.h"
#include "client/Filter.h"
#include "tests/search/SearchFixture.h"

namespace vorrim {
namespace {

// The printed tree of a filter, or "bad"; a lone substring in quotes, to tell it from the others.
std::string filter(std::string_view text) {
    const auto search = parseFilter(text);
    if (!search) return "bad";
    const std::string tree = test::printed(*search->root());
    return search->root()->kind() == NodeKind::substring ? '"' + tree + '"' : tree;
}

TEST(FilterExpressionsTest, TermsAreWordsTextsAndNumbers) {
    const std::string full(255, 'a');
    const std::pair<std::string, std::string> cases[] = {
        {"mp3", "\"mp3\""},
        {"((  MP3))", "\"MP3\""},
        {"( mp3  )", "\"mp3\""},
        {"#SIZE", "\"#SIZE\""},
        {"mp3*", "\"mp3*\""},
        {"", "\"\""},
        {"(" + full + ")", '"' + full + '"'},
        {"*", test::printed(*parseFilterTerm("*"))},
        {"*mp3", test::printed(*parseFilterTerm("*"))},
        {"#FILENAME x", "\x01=x"},
        {"  #SIZE   x", "\x02=x"},
        {"#TYPE x", "\x03=x"},
        {"#FORMAT x", "\x04=x"},
        {"#DESC x", "\x0B=x"},
        {"#AVAIL x", "\x15=x"},
        {"#size x", "#size=x"},
        {"Artist x", "Artist=x"},
        {"#TYPE x ", "bad"},  // a blank behind the value asks for a number
        {"#SIZE > 650", "\x02>650"},
        {"#SIZE < -12x", "\x02<-12"},
        {"#SIZE >= +7", "\x02>=7"},
        {"#SIZE <= many", "\x02<=0"},
        {"#SIZE != 4294967295", "\x02!=-1"},
        {"#SIZE = 650", "\x02=650"},
        {"#SIZE => 650 or so", "\x02=650"},
        {" ", "bad"},
        {"()", "bad"},
        {"( )", "bad"},
    };
    for (const auto& [text, tree] : cases)
        EXPECT_EQ(filter(text), tree) << text;
    EXPECT_EQ(parseFilterTerm("*")->kind(), NodeKind::all);
    EXPECT_EQ(parseFilterTerm("#TYPE x")->kind(), NodeKind::string_tag_compare);
    EXPECT_EQ(parseFilterTerm("#SIZE = 1")->kind(), NodeKind::int_tag_compare);
}

TEST(FilterExpressionsTest, TermsCombineFromLeftToRight) {
    const std::string full(255, 'a');
    const std::pair<std::string, std::string> cases[] = {
        {"(a)|(b)", " ( a | b ) "},
        {"(a)!(b)x(c)&(d)", " (  (  ( a ! b )  x c )  & d ) "},
        {"(a) | (b)", " ( a & b ) "},  // blanks make it another operator
        {"(a)||(b)", " ( a & b ) "},
        {"a(b)c", " ( a & c ) "},  // the second token is an operator
        {"(a)(b)", "\"a\""},
        {"(a)|", "\"a\""},
        {"(" + full + "|)(b)", " ( " + full + " | b ) "},  // what is over is the operator
        {"(a)|(#TYPE Audio )", "bad"},
    };
    for (const auto& [text, tree] : cases)
        EXPECT_EQ(filter(text), tree) << text;
    std::string buffer;
    Filter(std::move(*parseFilter("(#SIZE > 650)|(mp3)"))).print(buffer);
    EXPECT_EQ(buffer, "search(  ( \x02>650 | mp3 )  )");
}

}  // namespace
}  // namespace vorrim
