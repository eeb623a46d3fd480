// What people and programs see: texts, numbers, tables, records.
#include <chrono>
#include <clocale>
#include <gtest/gtest.h>
#include <string>

#include "Failure.h"
#include "FileHasher.h"
#include "FileTypes.h"
#include "Publisher.h"
#include "Records.h"
#include "TablePrinter.h"
#include "Text.h"
#include "meta/Meta.h"
#include "tests/WireForms.h"

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

TEST(RecordsTest, OddTagsAreShownAndChangeNothingElse) {
    using wire::text_tag;
    const wire::Bytes bytes =
        wire::Record{wire::hash_of(1),
                     0x0100007F,
                     4662,
                     {text_tag("\x02", "a size that is a text"), text_tag("Artist", "abba"),
                      text_tag("Artist", "not shown"), text_tag("n", "has no name"),
                      wire::hash_tag("\x07", wire::hash_of(0x03020100, 0x0F))}}
            .encode();
    kx_memory_file in = test::stream_of(bytes);
    const FrozenRecord record = read_record(in);
    const nlohmann::json json = file_json(record.view());
    EXPECT_EQ(json["size"], nullptr);
    EXPECT_EQ(json["name"], nullptr);
    EXPECT_EQ(json["tags"], nlohmann::json::parse(R"({
        "Size": "a size that is a text", "Artist": "abba",
        "Part Hash": "000102030f0f0f0f0f0f0f0f0f0f0f0f"})"));
    EXPECT_EQ(json["first_source"], nlohmann::json::parse(R"({
        "id": 16777343, "address": "127.0.0.1", "port": 4662, "reachable": true})"));
}

TEST(RecordsTest, TruncatedAnswersAreFailures) {
    const wire::Bytes endpoints = wire::hex("02  01 00 00 00 09 09");
    kx_memory_file data = test::stream_of(endpoints);
    EXPECT_THROW((void)read_endpoints(data), Failure);
    kx_memory_file none = kx_memory_file::reading({});
    EXPECT_THROW((void)read_endpoints(none), Failure);
    EXPECT_THROW((void)read_record(none), Failure);
    EXPECT_THROW((void)read_records(none), Failure);
}

}  // namespace
}  // namespace vorrim::cli
