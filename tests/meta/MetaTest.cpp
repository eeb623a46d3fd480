// Tags, records and lists of records: their golden bytes, and bytes that are none; how
// hashes and addresses are written.
#include <gtest/gtest.h>
#include <string>

#include "base/kx_err.h"
#include "meta/ClientId.h"
#include "meta/FileHash.h"
#include "meta/FileList.h"
#include "meta/ServerList.h"
#include "meta/ServerMeta.h"
#include "tests/WireForms.h"
#include "tests/base/RecordingOutput.h"

namespace vorrim {
namespace {

using test::bytes_of;
using test::stream_of;
using wire::Bytes;
using wire::hex;

Bytes in_a_row(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts)
        all.add(part);
    return all;
}

Bytes network_form(const Serializable& item) {
    kx_memory_file out(64);
    EXPECT_TRUE(item.toNetwork(out));
    return bytes_of(out.contents());
}

Bytes disk_form(const Serializable& item) {
    kx_memory_file out(64);
    EXPECT_TRUE(item.toDisk(out));
    return bytes_of(out.contents());
}

bool decode_network(Serializable& item, const Bytes& bytes) {
    kx_memory_file stream = stream_of(bytes);
    return item.fromNetwork(stream);
}

bool decode_disk(Serializable& item, const Bytes& bytes) {
    kx_memory_file stream = stream_of(bytes);
    return item.fromDisk(stream);
}

// What is said while it lives, chatter too.
struct Heard final : RecordingOutput {
    Heard() { set_verbose(true); }
};

const Bytes kCountingHash = hex("00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F");
const Bytes kFixed = in_a_row({kCountingHash, hex("05 00 00 00 36 12")});  // id 5, port 4662
const Bytes kSize = hex("03 01 00 02 E8 03 00 00");
const Bytes kNoTags = hex("00 00 00 00");
const Bytes kServer = hex("7F 00 00 01 35 12");  // 127.0.0.1, 4661
const std::string kTooLong(65'535, 'x');

TEST(MetaTag, ATextTooLongForTheWireIsSaid) {
    Heard heard;
    kx_memory_file out(1024);
    EXPECT_TRUE(makeTag("a", TagText(kTooLong.substr(1)))->toBytes(out));
    EXPECT_FALSE(makeTag("ab", TagText(kTooLong))->toBytes(out));
    EXPECT_EQ(heard.take(), "V:**KX error in MetaTagString::toBytes()\n");
    EXPECT_TRUE(makeTag(kTooLong, std::uint32_t{5})->toBytes(out));
    EXPECT_EQ(heard.take(), "V:**KX error in MetaTag::toBytes()\n");
}

TEST(Meta, DiskFormCarriesReservedWordAndExtraHashes) {
    const Bytes bytes =
        in_a_row({hex("78 56 34 12"), kCountingHash, hex("02 00"),
                  Bytes().fill(16, 0xAA).fill(16, 0xBB), hex("01 00 00 00"), kSize});
    Meta meta;
    meta.setName("old");
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(decode_disk(meta, bytes));
        EXPECT_EQ(disk_form(meta), bytes) << "decoding from disk replaces";
    }
    EXPECT_EQ(meta.reserved(), 0x12345678U);

    Meta copy;
    copy.copyFrom(meta);
    copy.copyFrom(meta);
    EXPECT_EQ(copy.reserved(), 0U);
    EXPECT_EQ(copy.extraHashes().size(), 4U);
    EXPECT_EQ(copy.tags().size(), 1U);
}

TEST(Meta, DiskFormThatEndsEarlyRaisesUpToTheTagCount) {
    Heard heard;
    const Bytes begin = in_a_row({kNoTags, kCountingHash, hex("01 00"), kCountingHash});
    const Bytes bytes = in_a_row({begin, hex("01 00 00 00"), kSize});
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        Meta meta;
        if (size < bytes.size() - kSize.size()) {
            EXPECT_THROW((void)decode_disk(meta, bytes.first(size)), kx_err) << size;
            EXPECT_EQ(heard.take(), "");
        } else {
            EXPECT_FALSE(decode_disk(meta, bytes.first(size))) << size;
            EXPECT_EQ(heard.take(), "ERROR: Meta::fromDisk()\n");
        }
        EXPECT_EQ(meta.extraHashes().size(), size < begin.size() ? 0U : 1U) << "only whole ones";
    }
}

TEST(Meta, APeersTagOfAnotherTypeBecomesTheWantedTypeInItsPlace) {
    Meta meta;
    ASSERT_TRUE(decode_network(meta, in_a_row({kFixed, hex("03 00 00 00 02 01 00 0D 01 00 78"),
                                               kSize, hex("01 01 00 0F"), kCountingHash})));
    EXPECT_EQ(meta.getIntTag("\x0D"), 0x78U) << "a text counts with its first bytes";
    EXPECT_EQ(meta.getIntTag("\x0F"), 0x03020100U) << "so does a hash";
    meta.setTagById(TagId::History, std::uint32_t{7});
    meta.setTagById(TagId::Port, std::uint32_t{9});
    meta.setTag("\x02", TagText("big"));
    EXPECT_EQ(network_form(meta),
              in_a_row({kFixed, hex("03 00 00 00 03 01 00 0D 07 00 00 00"),
                        hex("02 01 00 02 03 00 62 69 67"), hex("03 01 00 0F 09 00 00 00")}));
    EXPECT_EQ(meta.tags().front()->id(), 13);
}

TEST(ServerMeta, IsNormalisedAfterReadingFromDisk) {
    const Bytes counters =
        hex("03 01 00 0C 00 00 00 00"
            "03 05 00 75 73 65 72 73 00 00 00 00  03 05 00 66 69 6C 65 73 00 00 00 00");
    const Bytes port_tag = hex("03 01 00 0F 35 12 00 00");
    const Bytes address_tag = hex("03 01 00 10 7F 00 00 01");
    ServerMeta server;
    ASSERT_TRUE(decode_disk(server, in_a_row({kServer, kNoTags})));
    EXPECT_EQ(network_form(server), in_a_row({Bytes().fill(16, 0), kServer, hex("05 00 00 00"),
                                              port_tag, address_tag, counters}));
    // Address and port are taken from the tags when the fields are zero.
    ServerMeta tagged;
    ASSERT_TRUE(decode_disk(tagged, in_a_row({Bytes().fill(6, 0), hex("02 00 00 00"), address_tag,
                                              hex("03 01 00 0F 35 12 01 00")})));
    EXPECT_EQ(network_form(tagged).from(16).first(6), kServer);
}

TEST(ServerMeta, CountersOfAPeerAreResetWhateverTheirType) {
    ServerMeta server;
    ASSERT_TRUE(decode_network(
        server, in_a_row({Bytes().fill(16, 0), kServer, hex("03 00 00 00"),
                          hex("03 05 00 75 73 65 72 73 09 00 00 00"),
                          hex("02 05 00 66 69 6C 65 73 01 00 78 03 01 00 0C 09 00 00 00")})));
    for (const char* counter : {"users", "files", "\x0C"})
        EXPECT_EQ(server.getTagValue(counter), TagValue(std::uint32_t{0})) << counter;
    EXPECT_EQ(server.tags().size(), 5U);
}

TEST(ServerMeta, ABadTagIsSaidAndNothingIsNormalised) {
    Heard heard;
    ServerMeta server;
    EXPECT_FALSE(decode_disk(server, in_a_row({kServer, hex("02 00 00 00"), kSize})));
    EXPECT_EQ(heard.take(), "ERROR: ServerMeta::fromDisk()\n");
    EXPECT_EQ(server.tags().size(), 1U);
    EXPECT_THROW((void)decode_disk(server, in_a_row({kServer, hex("00")})), kx_err);
}

TEST(ServerList, ARecordThatCannotBeReadIsSaidAndThoseBeforeItStay) {
    Heard heard;
    ServerList servers;
    EXPECT_FALSE(decode_network(servers, in_a_row({hex("02 00 00 00"), kFixed, kNoTags})));
    EXPECT_EQ(heard.take(), "V:meta #:2, n=1\nV:ERROR: ServerList::fromBytes()\n");
    EXPECT_EQ(servers.count(), 1U);
}

TEST(FileList, DiskFormStartsWithItsMarker) {
    Heard heard;
    const Bytes record = in_a_row({kNoTags, kCountingHash, hex("00 00")});
    const Bytes list_of_one = in_a_row({hex("0E 01 00 00 00"), record, kNoTags});
    FileList list;
    EXPECT_FALSE(decode_disk(list, in_a_row({hex("0D"), list_of_one.from(1)})));
    EXPECT_EQ(heard.take(), "");
    ASSERT_TRUE(decode_disk(list, list_of_one));
    EXPECT_EQ(disk_form(list), list_of_one);
    EXPECT_FALSE(decode_disk(list, in_a_row({hex("0E 01 00 00 00"), record, hex("01 00 00 00")})));
    EXPECT_EQ(heard.take(),
              "ERROR: Meta::fromDisk()\nV:meta #:1, n=0\nERROR: FileList::fromDisk()\n");
}

TEST(FileList, ARecordThatFailsToEncodeIsSaidAndTheOthersAreWritten) {
    Heard heard;
    FileList list;
    for (const int key : {1, 2, 3}) {
        const auto record = std::make_shared<Meta>();
        record->setHash(FileHash{{std::byte(key)}});
        if (key == 2) record->setName(kTooLong);
        list.append(record);
    }
    kx_memory_file out(1024);
    EXPECT_FALSE(list.toNetwork(out));
    EXPECT_EQ(heard.take(),
              "V:**KX error in MetaTagString::toBytes()\n"
              "ERROR: Serializable::saveList()\n"    // the tag, said by its record
              "ERROR: Serializable::saveList()\n");  // the record, said by the list
    const Bytes bytes = bytes_of(out.contents());
    EXPECT_EQ(bytes.first(5), hex("03 00 00 00 01"));
    EXPECT_EQ(bytes.from(bytes.size() - kFixed.size() - kNoTags.size()).first(1), hex("03"));
}

TEST(FileHash, PrintsAndReadsHexadecimalInByteOrder) {
    const FileHash hash = FileHash::at(reinterpret_cast<const std::byte*>(kCountingHash.data()));
    EXPECT_EQ(hashToHex(hash), "000102030405060708090a0b0c0d0e0f");
    EXPECT_EQ(hexToHash("000102030405060708090A0b0C0d0e0F"), hash);
    EXPECT_EQ(hash.first_u32(), 0x03020100U);
    for (const char* bad :
         {"", "00", "000102030405060708090a0b0c0d0e0", "000102030405060708090a0b0c0d0e0f0",
          "000102030405060708090a0b0c0d0e0g", " 00102030405060708090a0b0c0d0e0f"})
        EXPECT_FALSE(hexToHash(bad)) << bad;
}

TEST(Address, ReadsWhatStartsWithFourNumbers) {
    EXPECT_EQ(textToIp("1.2.3.4.5"), 0x04030201U);
    EXPECT_EQ(textToIp("1.2.3.4 and more"), 0x04030201U);
    EXPECT_EQ(textToIp(" 1. 2.\t3.+4"), 0x04030201U);
    EXPECT_EQ(textToIp("257.-1.512.99999999999"), 0xFF00FF01U);
    for (const char* bad :
         {"", "1.2.3", "1.2.3.", "a.b.c.d", "1 .2.3.4", "1,2,3,4", "1.2.3.x", "."})
        EXPECT_EQ(textToIp(bad), 0U) << bad;
}

}  // namespace
}  // namespace vorrim
