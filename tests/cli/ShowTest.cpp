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

TEST(TextTest, NumbersRoundAtTheirUnits) {
    EXPECT_EQ(readable_size(0), "0 B");
    EXPECT_EQ(readable_size(1023), "1023 B");
    EXPECT_EQ(readable_size(1024), "1.0 KiB");
    EXPECT_EQ(readable_size(1024 * 1024 - 1), "1.0 MiB");
    EXPECT_EQ(readable_size(0xFFFFFFFF), "4.0 GiB");
    EXPECT_EQ(readable_size(UINT64_MAX), "16777216.0 TiB");
    EXPECT_EQ(readable_count(999), "999");
    EXPECT_EQ(readable_count(1000), "1,000");
    EXPECT_EQ(readable_count(1234567), "1,234,567");
    EXPECT_EQ(readable_time(250us), "250 us");
    EXPECT_EQ(readable_time(3140us), "3.1 ms");
    EXPECT_EQ(readable_time(80s), "1 min 20 s");
    EXPECT_EQ(readable_time(2h + 5min), "2 h 5 min");
    EXPECT_EQ(counted(1, "file", "files"), "1 file");
}

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

TEST(TablePrinterTest, WithoutATerminalNothingIsCut) {
    EXPECT_EQ(sample().text(Terminal::none()),
              "NAME                                        SIZE  TYPE\n"
              "a rather long name of forty characters..     1 B  Audio\n"
              "b                                         1000 B\n");
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

TEST(TablePrinterTest, AnAbsurdWidthStillShowsSomething) {
    const std::string text = sample().text(Terminal::of_width(1));
    EXPECT_NE(text.find("a rathe\xE2\x80\xA6     1 B\n"), std::string::npos) << text;
}

TEST(FileTypesTest, TheExtensionTellsTypeAndFormat) {
    const auto kind = [](const char* name) {
        const FileKind found = kind_of(name);
        return std::string(found.type) + '/' + found.format;
    };
    EXPECT_EQ(kind("song.MP3"), "Audio/mp3");
    EXPECT_EQ(kind("film.mkv"), "Video/mkv");
    EXPECT_EQ(kind("photo.jpeg"), "Image/jpeg");
    EXPECT_EQ(kind("book.pdf"), "Doc/pdf");
    EXPECT_EQ(kind("setup.exe"), "Pro/exe");
    EXPECT_EQ(kind("a.tar.gz"), "Archive/gz");
    EXPECT_EQ(kind("7.7z"), "Archive/7z");
    EXPECT_EQ(kind("z.zst"), "Archive/zst");
    EXPECT_EQ(kind("libfoo.so.1.2.3"), "Pro/so");
    EXPECT_EQ(kind("crontab.5"), "/5");
    EXPECT_EQ(kind("strange.xyzzy"), "/xyzzy");
    EXPECT_EQ(kind(".bashrc"), "/");
    EXPECT_EQ(kind("README"), "/");
    EXPECT_EQ(kind("dot."), "/");
    EXPECT_EQ(kind("Mr. Smith goes to town"), "/");
}

}  // namespace
}  // namespace vorrim::cli
