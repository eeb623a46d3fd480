#include <array>
#include <gtest/gtest.h>

#include "base/kx_err.h"
#include "meta/MetaTag.h"
#include "tests/meta/support.h"

namespace vorrim {
namespace {

using test::Bytes;
using test::operator+;
using test::hex;

const Bytes kSize1000 = hex("03 01 00 02 E8 03 00 00");
const Bytes kArtistAbc = hex("02 06 00 41 72 74 69 73 74 03 00 61 62 63");
const Bytes kPartHash = hex("01 01 00 07") + test::kCountingHash;
const Bytes kIp = hex("03 01 00 10 7F 00 00 01");

std::unique_ptr<MetaTag> read(const Bytes& bytes) {
    kx_memory_file stream = test::stream_of(bytes);
    return tagFromBytes(stream);
}

TEST(MetaTag, EncodesToGoldenBytes) {
    EXPECT_EQ(test::network_form(*makeTagById(TagId::Size, std::uint32_t{1000})), kSize1000);
    EXPECT_EQ(test::disk_form(*makeTag("Artist", TagText("abc"))), kArtistAbc);
    const FileHash hash = FileHash::at(test::kCountingHash.data());
    EXPECT_EQ(test::network_form(*makeTagById(TagId::PartHash, hash)), kPartHash);
    EXPECT_EQ(test::network_form(*makeTagById(TagId::IP, std::uint32_t{0x0100007F})), kIp);
}

TEST(MetaTag, DecodesAndEncodesAgain) {
    for (const Bytes& bytes : {kSize1000, kArtistAbc, kPartHash, kIp, hex("02 00 00 00 00"),
                               hex("03 01 00 6E 01 00 00 00"), hex("02 01 00 30 01 00 78")}) {
        const auto tag = read(bytes);
        ASSERT_TRUE(tag) << test::to_hex(bytes);
        EXPECT_EQ(test::network_form(*tag), bytes);
        EXPECT_EQ(tag->size(), bytes.size());
        EXPECT_EQ(test::network_form(*tag->clone()), bytes);
        EXPECT_EQ(tag->clone()->id(), tag->id());
    }
}

TEST(MetaTag, NamesOfOneByteAreIds) {
    const auto id_of = [](std::string_view name) {
        return read(hex("03 01 00") + hex(name) + hex("00 00 00 00"))->id();
    };
    EXPECT_EQ(id_of("01"), 1);
    EXPECT_EQ(id_of("30"), 0x30);
    EXPECT_EQ(id_of("80"), -128);
    EXPECT_EQ(id_of("00"), 0);

    const auto name = read(hex("02 01 00 01 00 00"));
    EXPECT_EQ(name->getName(), "Name");
    const auto without_row = read(hex("02 01 00 30 00 00"));
    EXPECT_EQ(without_row->getName(), "0");
    const auto first_without_row = read(hex("02 01 00 18 00 00"));
    EXPECT_EQ(first_without_row->getName(), "\x18");
}

TEST(MetaTag, TheNameNMeansNoNameAndTheEmptyNameIsAName) {
    const auto unnamed = read(hex("03 01 00 6E 00 00 00 00"));
    EXPECT_TRUE(unnamed->name().null());
    EXPECT_EQ(unnamed->id(), 0);
    EXPECT_EQ(unnamed->getName(), std::nullopt);
    EXPECT_FALSE(unnamed->has_name("n"));
    EXPECT_FALSE(unnamed->has_name(""));
    const auto empty = read(hex("03 00 00 00 00 00 00"));
    EXPECT_TRUE(empty->has_name(""));
    EXPECT_EQ(empty->id(), 0);
}

TEST(MetaTag, AnUnknownTypeIsSaidTwice) {
    test::RecordedOutput output;
    for (const char* type : {"00", "04", "FF"}) {
        const Bytes bytes = hex(type) + hex("01 00 02 E8 03 00 00");
        EXPECT_FALSE(read(bytes));
        EXPECT_EQ(output.take(), "E:ERROR: unknown type MetaTag::makeTag() " +
                                     std::to_string(std::to_integer<int>(bytes.front())) +
                                     "\nE:error in tag from bytes\n");
    }
}

TEST(MetaTag, ATextTooLongForTheWireIsSaid) {
    test::RecordedOutput output;
    const std::string longest(65'534, 'x');
    const std::string too_long(65'535, 'x');
    kx_memory_file out(1024);
    EXPECT_TRUE(makeTag("a", TagText(longest))->toBytes(out));
    EXPECT_FALSE(makeTag("ab", TagText(too_long))->toBytes(out));
    EXPECT_EQ(output.take(), "V:**KX error in MetaTagString::toBytes()\n");
    EXPECT_TRUE(makeTag(too_long, std::uint32_t{5})->toBytes(out));
    EXPECT_EQ(output.take(), "V:**KX error in MetaTag::toBytes()\n");
}

TEST(MetaTag, ValuesInWords) {
    EXPECT_EQ(makeTag("i", std::uint32_t{0xFFFFFFFF})->valueText(2), "-1");
    EXPECT_EQ(makeTag("h", FileHash::at(test::kCountingHash.data()))->valueText(2),
              "000102030405060708090a0b0c0d0e0f");
    EXPECT_EQ(makeTag("t", TagText())->valueText(255), std::nullopt);
    EXPECT_EQ(makeTag("t", TagText(""))->valueText(255), "");
    EXPECT_EQ(makeTag("t", TagText("abcdef"))->valueText(7), "abcdef");
    EXPECT_EQ(makeTag("t", TagText("abcdef"))->valueText(6), "abcde");
}

TEST(MetaTag, AValueOfAnotherTypeIsNotTaken) {
    const auto tag = makeTag("t", TagText("abc"));
    EXPECT_FALSE(tag->setValue(std::uint32_t{5}));
    EXPECT_EQ(std::get<TagText>(tag->value()), "abc");
    EXPECT_TRUE(tag->setValue(TagText()));
    EXPECT_EQ(std::get<TagText>(tag->value()), std::nullopt);
}

}  // namespace
}  // namespace vorrim
