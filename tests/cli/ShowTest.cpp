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
#include "base/file/primitives.h"
#include "meta/Meta.h"

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

FileHash counting_hash() {
    FileHash hash;
    for (std::size_t i = 0; i < hash.bytes.size(); ++i)
        hash.bytes[i] = static_cast<std::byte>(i);
    return hash;
}

TEST(RecordsTest, OddTagsAreShownAndChangeNothingElse) {
    kx_memory_file out(64);
    write_bytes(out, counting_hash().bytes);
    write_32(out, 0x0100007F);
    write_16(out, 4662);
    write_32(out, 5);
    const auto text = [&](std::string_view name, std::string_view value) {
        write_8(out, TagType::text);
        write_string(name, out);
        write_string(value, out);
    };
    text("\x02", "a size that is a text");
    text("Artist", "abba");
    text("Artist", "not shown");
    text("n", "has no name");
    write_8(out, TagType::hash);
    write_string("\x07", out);
    write_bytes(out, counting_hash().bytes);
    kx_memory_file in = kx_memory_file::reading(out.contents());
    const FrozenRecord record = read_record(in);
    const nlohmann::json json = file_json(record.view());
    EXPECT_EQ(json["size"], nullptr);
    EXPECT_EQ(json["name"], nullptr);
    EXPECT_EQ(json["tags"], nlohmann::json::parse(R"({
        "Size": "a size that is a text", "Artist": "abba",
        "Part Hash": "000102030405060708090a0b0c0d0e0f"})"));
    EXPECT_EQ(json["first_source"], nlohmann::json::parse(R"({
        "id": 16777343, "address": "127.0.0.1", "port": 4662, "reachable": true})"));
}

TEST(RecordsTest, TruncatedAnswersAreFailures) {
    const std::vector<std::byte> endpoints = {std::byte{2}, std::byte{1}, std::byte{0},
                                              std::byte{0}, std::byte{0}, std::byte{9},
                                              std::byte{9}};
    kx_memory_file data = kx_memory_file::reading(endpoints);
    EXPECT_THROW((void)read_endpoints(data), Failure);
    kx_memory_file none = kx_memory_file::reading({});
    EXPECT_THROW((void)read_endpoints(none), Failure);
    EXPECT_THROW((void)read_record(none), Failure);
    EXPECT_THROW((void)read_records(none), Failure);
}

}  // namespace
}  // namespace vorrim::cli
