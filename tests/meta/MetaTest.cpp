#include <gtest/gtest.h>

#include "base/kx_err.h"
#include "meta/Meta.h"
#include "meta/ServerMeta.h"
#include "tests/meta/support.h"

namespace vorrim {
namespace {

using test::Bytes;
using test::operator+;
using test::hex;

const Bytes kFixed = test::kCountingHash + hex("05 00 00 00 36 12");  // id 5, port 4662
const Bytes kName = hex("02 01 00 01 03 00 61 62 63");
const Bytes kSize = hex("03 01 00 02 E8 03 00 00");

template <typename Record>
bool decode_network(Record& record, const Bytes& bytes) {
    kx_memory_file stream = test::stream_of(bytes);
    return record.fromNetwork(stream);
}

template <typename Record>
bool decode_disk(Record& record, const Bytes& bytes) {
    kx_memory_file stream = test::stream_of(bytes);
    return record.fromDisk(stream);
}

TEST(Meta, NetworkFormTravelsBothWays) {
    const Bytes bytes = kFixed + hex("02 00 00 00") + kName + kSize;
    Meta meta;
    ASSERT_TRUE(decode_network(meta, bytes));
    EXPECT_EQ(meta.id(), 5U);
    EXPECT_EQ(meta.port(), 4662);
    EXPECT_EQ(meta.getTextTag(wire_name(TagId::Name)), "abc");
    EXPECT_EQ(meta.getIntTag(wire_name(TagId::Size)), 1000U);
    EXPECT_EQ(test::network_form(meta), bytes);
    EXPECT_EQ(meta.size(), bytes.size() + 6);
}

TEST(Meta, AMissingTagIsSaidAndTheOthersStay) {
    test::RecordedOutput output;
    Meta meta;
    EXPECT_FALSE(decode_network(meta, kFixed + hex("03 00 00 00") + kName + kSize));
    EXPECT_EQ(output.take(), "V:ERROR: Meta::fromNetwork()\n");
    EXPECT_EQ(meta.tags().size(), 2U);
    EXPECT_FALSE(decode_network(meta, kFixed + hex("FF FF FF 7F") + kName + hex("09")));
    EXPECT_EQ(output.take(),
              "E:ERROR: unknown type MetaTag::makeTag() 9\nE:error in tag from bytes\n"
              "V:ERROR: Meta::fromNetwork()\n");
    for (std::size_t size = 0; size < 26; ++size) {
        Bytes shorter = kFixed + hex("00 00 00 00");
        shorter.resize(size);
        EXPECT_FALSE(decode_network(meta, shorter)) << size;
    }
    EXPECT_EQ(output.take(), "");
}

TEST(Meta, DiskFormCarriesReservedWordAndExtraHashes) {
    const Bytes extra = Bytes(16, std::byte{0xAA}) + Bytes(16, std::byte{0xBB});
    const Bytes bytes = hex("78 56 34 12") + test::kCountingHash + hex("02 00") + extra +
                        hex("01 00 00 00") + kSize;
    Meta meta;
    meta.setName("old");
    ASSERT_TRUE(decode_disk(meta, bytes));
    EXPECT_EQ(meta.reserved(), 0x12345678U);
    EXPECT_EQ(test::disk_form(meta), bytes);
    ASSERT_TRUE(decode_disk(meta, bytes));
    EXPECT_EQ(test::disk_form(meta), bytes) << "decoding from disk replaces";

    Meta copy;
    copy.copyFrom(meta);
    copy.copyFrom(meta);
    EXPECT_EQ(copy.reserved(), 0U);
    EXPECT_EQ(copy.extraHashes().size(), 4U);
    EXPECT_EQ(copy.tags().size(), 1U);
}

TEST(Meta, DiskFormThatEndsEarlyRaisesUpToTheTagCount) {
    test::RecordedOutput output;
    const Bytes bytes = hex("00 00 00 00") + test::kCountingHash + hex("01 00") + Bytes(16) +
                        hex("01 00 00 00") + kSize;
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        Meta meta;
        const Bytes shorter(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
        if (size < bytes.size() - kSize.size()) {
            EXPECT_THROW((void)decode_disk(meta, shorter), kx_err) << size;
            EXPECT_EQ(output.take(), "");
        } else {
            EXPECT_FALSE(decode_disk(meta, shorter)) << size;
            EXPECT_EQ(output.take(), "E:ERROR: Meta::fromDisk()\n");
        }
    }
}

TEST(Meta, SettersReplaceInPlaceOrAppend) {
    Meta meta;
    ASSERT_TRUE(decode_network(meta, kFixed + hex("02 00 00 00") + kName + kSize));
    meta.setTagById(TagId::Size, std::uint32_t{5});
    meta.setTag("Artist", TagText("x"));
    meta.setTag("Artist", TagText("y"));
    meta.setName("new");
    EXPECT_EQ(meta.tags().size(), 3U);
    EXPECT_EQ(meta.getTextTag("Artist"), "y");
    EXPECT_EQ(meta.getTextTag("\x01"), "new");
    EXPECT_FALSE(meta.setTagValue("artist", TagText("z")));
    EXPECT_FALSE(meta.addTag("Artist", TagType::integer));
    EXPECT_TRUE(meta.addTag("bitrate", TagType::integer));
    EXPECT_EQ(meta.getTagValue("bitrate"), TagValue(std::uint32_t{0}));
    meta.removeTag("Artist");
    meta.removeTag("Artist");
    EXPECT_EQ(meta.findTag("Artist"), nullptr);
    EXPECT_EQ(meta.tags().size(), 3U);
}

TEST(Meta, APeersTagOfAnotherTypeBecomesTheWantedTypeInItsPlace) {
    Meta meta;
    ASSERT_TRUE(decode_network(meta, kFixed + hex("03 00 00 00") + hex("02 01 00 0D 01 00 78") +
                                         kSize + (hex("01 01 00 0F") + test::kCountingHash)));
    EXPECT_EQ(meta.getIntTag("\x0D"), 0x78U) << "a text counts with its first bytes";
    EXPECT_EQ(meta.getIntTag("\x0F"), 0x03020100U) << "so does a hash";
    meta.setTagById(TagId::History, std::uint32_t{7});
    meta.setTagById(TagId::Port, std::uint32_t{9});
    meta.setTag("\x02", TagText("big"));
    EXPECT_EQ(test::network_form(meta), kFixed + hex("03 00 00 00 03 01 00 0D 07 00 00 00") +
                                            hex("02 01 00 02 03 00 62 69 67") +
                                            hex("03 01 00 0F 09 00 00 00"));
    EXPECT_EQ(meta.tags().front()->id(), 13);
}

TEST(Meta, UnnamedTagsAreNeverFound) {
    Meta meta;
    ASSERT_TRUE(decode_network(meta, kFixed + hex("01 00 00 00 03 01 00 6E 07 00 00 00")));
    EXPECT_EQ(meta.findTag("n"), nullptr);
    EXPECT_EQ(meta.findTag(""), nullptr);
}

TEST(Meta, PrintsRecordTagsAndHash) {
    test::RecordedOutput output;
    Meta meta;
    ASSERT_TRUE(decode_network(
        meta, kFixed + hex("03 00 00 00") + kName + kSize + hex("03 01 00 6E FF FF FF FF")));
    meta.setPort(40'000);
    meta.addTag("Empty", TagType::text);
    meta.setTag("%s%n", TagText("%d %s"));
    meta.print();
    EXPECT_EQ(output.take(),
              "L:ID: 5 Port: 40000"
              "L:Name: abc"
              "L:Size: 1000"
              "L:(null): -1"
              "L:Empty: (null)"
              "L:%s%n: %d %s"
              "L:Hash: 000102030405060708090a0b0c0d0e0f");
}

const Bytes kServerFixed = hex("7F 00 00 01 35 12");  // 127.0.0.1, 4661

TEST(ServerMeta, IsNormalisedAfterReadingFromDisk) {
    ServerMeta server;
    ASSERT_TRUE(decode_disk(server, kServerFixed + hex("00 00 00 00")));
    EXPECT_EQ(server.id(), 0x0100007FU);
    EXPECT_EQ(server.port(), 4661);
    EXPECT_EQ(test::network_form(server),
              Bytes(16) + kServerFixed + hex("05 00 00 00") +
                  hex("03 01 00 0F 35 12 00 00  03 01 00 10 7F 00 00 01  03 01 00 0C 00 00 00 00") +
                  hex("03 05 00 75 73 65 72 73 00 00 00 00  03 05 00 66 69 6C 65 73 00 00 00 00"));
}

TEST(ServerMeta, TakesAddressAndPortFromTheTagsWhenTheFieldsAreZero) {
    ServerMeta server;
    ASSERT_TRUE(decode_disk(server, hex("00 00 00 00 00 00 02 00 00 00") +
                                        hex("03 01 00 10 7F 00 00 01") +
                                        hex("03 01 00 0F 35 12 01 00")));
    EXPECT_EQ(server.id(), 0x0100007FU);
    EXPECT_EQ(server.port(), 4661);
}

TEST(ServerMeta, CountersOfAPeerAreResetWhateverTheirType) {
    ServerMeta server;
    ASSERT_TRUE(decode_network(server, Bytes(16) + kServerFixed + hex("03 00 00 00") +
                                           hex("03 05 00 75 73 65 72 73 09 00 00 00") +
                                           hex("02 05 00 66 69 6C 65 73 01 00 78") +
                                           hex("03 01 00 0C 09 00 00 00")));
    EXPECT_EQ(server.getTagValue("users"), TagValue(std::uint32_t{0}));
    EXPECT_EQ(server.getTagValue("files"), TagValue(std::uint32_t{0}));
    EXPECT_EQ(server.getIntTag("\x0C"), 0U);
    EXPECT_EQ(server.tags().size(), 5U);
}

TEST(ServerMeta, HistoryTravelsInItsTag) {
    ServerMeta server;
    EXPECT_TRUE(server.setAddress("127.0.0.1", 4661));
    server.setHistory(2);
    server.addPing();
    const Bytes expected = kServerFixed + hex("03 00 00 00") + hex("03 01 00 0F 35 12 00 00") +
                           hex("03 01 00 10 7F 00 00 01") + hex("03 01 00 0D 03 00 00 00");
    EXPECT_EQ(test::disk_form(server), expected);
    ServerMeta loaded;
    ASSERT_TRUE(decode_disk(loaded, expected));
    EXPECT_EQ(loaded.history(), 3U);
    loaded.setHistory(1);
    ServerMeta again;
    ASSERT_TRUE(decode_disk(again, test::disk_form(loaded)));
    EXPECT_EQ(again.history(), 1U);
    EXPECT_EQ(again.tags().size(), loaded.tags().size());
}

TEST(ServerMeta, ABadTagIsSaidAndNothingIsNormalised) {
    test::RecordedOutput output;
    ServerMeta server;
    EXPECT_FALSE(decode_disk(server, kServerFixed + hex("02 00 00 00") + kSize));
    EXPECT_EQ(output.take(), "E:ERROR: ServerMeta::fromDisk()\n");
    EXPECT_EQ(server.tags().size(), 1U);
    EXPECT_THROW((void)decode_disk(server, hex("7F 00 00 01 35 12 00")), kx_err);
}

}  // namespace
}  // namespace vorrim
