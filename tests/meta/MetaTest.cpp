// Tags, records and lists of records: their golden bytes, and bytes that are none; how hashes and
// addresses are written.
#include <gtest/gtest.h>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/file/kx_memory_file.h"
#include "base/kx_err.h"
#include "meta/ClientId.h"
#include "meta/FileHash.h"
#include "meta/FileList.h"
#include "meta/Meta.h"
#include "meta/MetaTag.h"
#include "meta/ServerList.h"
#include "meta/ServerMeta.h"
#include "tests/base/RecordingOutput.h"

namespace vorrim {
namespace {

using Bytes = std::vector<std::byte>;

// "03 01 00" -> three bytes; blanks are ignored.
Bytes hex(std::string_view text) {
    Bytes bytes;
    unsigned value = 0;
    bool half = false;
    for (const char c : text) {
        if (c == ' ') continue;
        value = value * 16 + static_cast<unsigned>(c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10);
        if (half) bytes.push_back(static_cast<std::byte>(value));
        if (half) value = 0;
        half = !half;
    }
    return bytes;
}

std::string to_hex(std::span<const std::byte> bytes) {
    std::string text;
    std::array<char, 4> digits{};
    for (const std::byte byte : bytes) {
        std::snprintf(digits.data(), digits.size(), "%02X ", std::to_integer<unsigned>(byte));
        text += digits.data();
    }
    return text;
}

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// 00 01 02 ... 0F
const Bytes kCountingHash = hex("00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F");

Bytes copy_of(std::span<const std::byte> bytes) {
    return {bytes.begin(), bytes.end()};
}

kx_memory_file stream_of(std::span<const std::byte> bytes) {
    return kx_memory_file::reading(bytes);
}

Bytes network_form(const Serializable& item) {
    kx_memory_file out(64);
    EXPECT_TRUE(item.toNetwork(out));
    return copy_of(out.contents());
}

Bytes disk_form(const Serializable& item) {
    kx_memory_file out(64);
    EXPECT_TRUE(item.toDisk(out));
    return copy_of(out.contents());
}

const Bytes kFixed = kCountingHash + hex("05 00 00 00 36 12");  // id 5, port 4662
const Bytes kName = hex("02 01 00 01 03 00 61 62 63");
const Bytes kSize = hex("03 01 00 02 E8 03 00 00");

template <typename Record>
bool decode_network(Record& record, const Bytes& bytes) {
    kx_memory_file stream = stream_of(bytes);
    return record.fromNetwork(stream);
}

template <typename Record>
bool decode_disk(Record& record, const Bytes& bytes) {
    kx_memory_file stream = stream_of(bytes);
    return record.fromDisk(stream);
}

TEST(MetaTag, ATextTooLongForTheWireIsSaid) {
    RecordingOutput output;
    output.set_verbose(true);
    const std::string longest(65'534, 'x');
    const std::string too_long(65'535, 'x');
    kx_memory_file out(1024);
    EXPECT_TRUE(makeTag("a", TagText(longest))->toBytes(out));
    EXPECT_FALSE(makeTag("ab", TagText(too_long))->toBytes(out));
    EXPECT_EQ(output.take(), "V:**KX error in MetaTagString::toBytes()\n");
    EXPECT_TRUE(makeTag(too_long, std::uint32_t{5})->toBytes(out));
    EXPECT_EQ(output.take(), "V:**KX error in MetaTag::toBytes()\n");
}

TEST(Meta, DiskFormCarriesReservedWordAndExtraHashes) {
    const Bytes extra = Bytes(16, std::byte{0xAA}) + Bytes(16, std::byte{0xBB});
    const Bytes bytes =
        hex("78 56 34 12") + kCountingHash + hex("02 00") + extra + hex("01 00 00 00") + kSize;
    Meta meta;
    meta.setName("old");
    ASSERT_TRUE(decode_disk(meta, bytes));
    EXPECT_EQ(meta.reserved(), 0x12345678U);
    EXPECT_EQ(disk_form(meta), bytes);
    ASSERT_TRUE(decode_disk(meta, bytes));
    EXPECT_EQ(disk_form(meta), bytes) << "decoding from disk replaces";

    Meta copy;
    copy.copyFrom(meta);
    copy.copyFrom(meta);
    EXPECT_EQ(copy.reserved(), 0U);
    EXPECT_EQ(copy.extraHashes().size(), 4U);
    EXPECT_EQ(copy.tags().size(), 1U);
}

TEST(Meta, DiskFormThatEndsEarlyRaisesUpToTheTagCount) {
    RecordingOutput output;
    output.set_verbose(true);
    const Bytes bytes =
        hex("00 00 00 00") + kCountingHash + hex("01 00") + Bytes(16) + hex("01 00 00 00") + kSize;
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        Meta meta;
        const Bytes shorter(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
        if (size < bytes.size() - kSize.size()) {
            EXPECT_THROW((void)decode_disk(meta, shorter), kx_err) << size;
            EXPECT_EQ(output.take(), "");
        } else {
            EXPECT_FALSE(decode_disk(meta, shorter)) << size;
            EXPECT_EQ(output.take(), "ERROR: Meta::fromDisk()\n");
        }
    }
}

TEST(Meta, APeersTagOfAnotherTypeBecomesTheWantedTypeInItsPlace) {
    Meta meta;
    ASSERT_TRUE(decode_network(meta, kFixed + hex("03 00 00 00") + hex("02 01 00 0D 01 00 78") +
                                         kSize + (hex("01 01 00 0F") + kCountingHash)));
    EXPECT_EQ(meta.getIntTag("\x0D"), 0x78U) << "a text counts with its first bytes";
    EXPECT_EQ(meta.getIntTag("\x0F"), 0x03020100U) << "so does a hash";
    meta.setTagById(TagId::History, std::uint32_t{7});
    meta.setTagById(TagId::Port, std::uint32_t{9});
    meta.setTag("\x02", TagText("big"));
    EXPECT_EQ(network_form(meta), kFixed + hex("03 00 00 00 03 01 00 0D 07 00 00 00") +
                                      hex("02 01 00 02 03 00 62 69 67") +
                                      hex("03 01 00 0F 09 00 00 00"));
    EXPECT_EQ(meta.tags().front()->id(), 13);
}

const Bytes kServerFixed = hex("7F 00 00 01 35 12");  // 127.0.0.1, 4661

TEST(ServerMeta, IsNormalisedAfterReadingFromDisk) {
    ServerMeta server;
    ASSERT_TRUE(decode_disk(server, kServerFixed + hex("00 00 00 00")));
    EXPECT_EQ(server.id(), 0x0100007FU);
    EXPECT_EQ(server.port(), 4661);
    EXPECT_EQ(network_form(server),
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

TEST(ServerMeta, ABadTagIsSaidAndNothingIsNormalised) {
    RecordingOutput output;
    output.set_verbose(true);
    ServerMeta server;
    EXPECT_FALSE(decode_disk(server, kServerFixed + hex("02 00 00 00") + kSize));
    EXPECT_EQ(output.take(), "ERROR: ServerMeta::fromDisk()\n");
    EXPECT_EQ(server.tags().size(), 1U);
    EXPECT_THROW((void)decode_disk(server, hex("7F 00 00 01 35 12 00")), kx_err);
}

const Bytes kNoTags = hex("00 00 00 00");
const Bytes kFile = kFixed + kNoTags;

FileList::Record file(std::uint8_t key) {
    auto record = std::make_shared<Meta>();
    FileHash hash;
    hash.bytes[0] = std::byte{key};
    record->setHash(hash);
    return record;
}

TEST(ServerList, ARecordThatCannotBeReadIsSaidAndThoseBeforeItStay) {
    RecordingOutput output;
    output.set_verbose(true);
    ServerList servers;
    EXPECT_FALSE(decode_network(servers, hex("02 00 00 00") + kFile));
    EXPECT_EQ(output.take(), "V:meta #:2, n=1\nV:ERROR: ServerList::fromBytes()\n");
    EXPECT_EQ(servers.count(), 1U);
}

TEST(FileList, DiskFormStartsWithItsMarker) {
    RecordingOutput output;
    output.set_verbose(true);
    const Bytes record = kNoTags + kCountingHash + hex("00 00") + kNoTags;
    FileList list;
    EXPECT_FALSE(decode_disk(list, hex("0D 01 00 00 00") + record));
    EXPECT_EQ(output.take(), "");
    ASSERT_TRUE(decode_disk(list, hex("0E 01 00 00 00") + record));
    EXPECT_EQ(disk_form(list), hex("0E 01 00 00 00") + record);
    Bytes promised_tag = record;
    promised_tag[promised_tag.size() - 4] = std::byte{1};
    EXPECT_FALSE(decode_disk(list, hex("0E 01 00 00 00") + promised_tag));
    EXPECT_EQ(output.take(),
              "ERROR: Meta::fromDisk()\nV:meta #:1, n=0\nERROR: FileList::fromDisk()\n");
}

TEST(FileList, ARecordThatFailsToEncodeIsSaidAndTheOthersAreWritten) {
    RecordingOutput output;
    output.set_verbose(true);
    FileList list;
    list.append(file(1));
    const std::string too_long(65'535, 'x');
    list.append(file(2));
    list.findByHash(file(2)->hash())->setName(too_long);
    list.append(file(3));
    kx_memory_file out(1024);
    EXPECT_FALSE(list.toNetwork(out));
    EXPECT_EQ(output.take(),
              "V:**KX error in MetaTagString::toBytes()\n"
              "ERROR: Serializable::saveList()\n"    // the tag, said by its record
              "ERROR: Serializable::saveList()\n");  // the record, said by the list
    const Bytes bytes = copy_of(out.contents());
    EXPECT_EQ(to_hex(std::span(bytes).first(5)), "03 00 00 00 01 ");
    EXPECT_EQ(bytes[bytes.size() - kFile.size()], std::byte{3});
}

TEST(FileHash, PrintsAndReadsHexadecimalInByteOrder) {
    const FileHash hash = FileHash::at(kCountingHash.data());
    EXPECT_EQ(hashToHex(hash), "000102030405060708090a0b0c0d0e0f");
    EXPECT_EQ(hexToHash("000102030405060708090A0b0C0d0e0F"), hash);
    EXPECT_EQ(hash.first_u32(), 0x03020100U);
    for (const char* bad :
         {"", "00", "000102030405060708090a0b0c0d0e0", "000102030405060708090a0b0c0d0e0f0",
          "000102030405060708090a0b0c0d0e0g", " 00102030405060708090a0b0c0d0e0f"}) {
        EXPECT_FALSE(hexToHash(bad)) << bad;
    }
}

TEST(Address, ReadsWhatStartsWithFourNumbers) {
    EXPECT_EQ(textToIp("1.2.3.4.5"), 0x04030201U);
    EXPECT_EQ(textToIp("1.2.3.4 and more"), 0x04030201U);
    EXPECT_EQ(textToIp(" 1. 2.\t3.+4"), 0x04030201U);
    EXPECT_EQ(textToIp("257.-1.512.99999999999"), 0xFF00FF01U);
    for (const char* bad :
         {"", "1.2.3", "1.2.3.", "a.b.c.d", "1 .2.3.4", "1,2,3,4", "1.2.3.x", "."}) {
        EXPECT_EQ(textToIp(bad), 0U) << bad;
    }
}

}  // namespace
}  // namespace vorrim
