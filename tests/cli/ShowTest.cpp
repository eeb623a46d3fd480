// What people see: texts, numbers, tables.

#include <chrono>
#include <clocale>
#include <gtest/gtest.h>
#include <string>

#include "FileTypes.h"
#include "TablePrinter.h"
#include "Text.h"

namespace vorrim::cli {
namespace {

using namespace std::chrono_literals;

TEST(TextTest, ATerminalGetsNothingItWouldObey) {
    EXPECT_EQ(printable("a\x1b[31mb\n\x7f"), "a?[31mb??");
    EXPECT_EQ(printable("gr\xC3\xBC\xC3\x9F"), "gr\xC3\xBC\xC3\x9F");
    EXPECT_EQ(printable("\xC2\x9B"
                        "2J"),
              "?2J");  // the one-byte escape of some terminals
    EXPECT_EQ(printable("x\xE2\x80\xAE"
                        "y"),
              "x?y");  // turns the direction of writing
    EXPECT_EQ(printable("\xFF\xC3"
                        "a\xE2\x82"),
              "??a??");  // no UTF-8
    EXPECT_EQ(printable_lines("a\x1b[31mb\n\tc"), "a?[31mb\n\tc");
    EXPECT_EQ(printable("\xC0\xAF\xED\xA0\x80"), "?????");  // overlong, surrogate
}

TEST(TextTest, CuttingCountsColumnsNotBytes) {
    std::setlocale(LC_CTYPE, "C.UTF-8");
    const std::string wide = "\xE6\x97\xA5\xE6\x9C\xAC";  // two characters of two columns
    EXPECT_EQ(display_width(wide), 4U);
    EXPECT_EQ(display_width("gr\xC3\xBC\xC3\x9F"), 4U);
    EXPECT_EQ(fitted("abcdef", 6), "abcdef");
    EXPECT_EQ(fitted("abcdef", 4), "abc\xE2\x80\xA6");
    EXPECT_EQ(fitted(wide + "x", 4), "\xE6\x97\xA5\xE2\x80\xA6");
    EXPECT_EQ(fitted("abc", 0), "");
}

TablePrinter sample() {
    TablePrinter table({{"NAME", Align::left, Room::flexible},
                        {"SIZE", Align::right},
                        {"TYPE", Align::left, Room::optional}});
    table.add_row({"a rather long name of forty characters..", "1 B", "Audio"});
    table.add_row({"b", "1000 B", ""});
    return table;
}

TEST(TablePrinterTest, ANarrowTerminalCutsTheNameThenDropsTheOptionalColumn) {
    EXPECT_EQ(sample().text(Terminal::of_width(45)),
              "NAME                              SIZE  TYPE\n"
              "a rather long name of forty c\xE2\x80\xA6     1 B  Audio\n"
              "b                               1000 B\n");
    EXPECT_EQ(sample().text(Terminal::of_width(32)),
              "NAME                        SIZE\n"
              "a rather long name of f\xE2\x80\xA6     1 B\n"
              "b                         1000 B\n");
}

}  // namespace
}  // namespace vorrim::cli
