#include <gtest/gtest.h>

#include "meta/ClientId.h"
#include "meta/FileHash.h"
#include "meta/Opcodes.h"
#include "meta/TagNames.h"
#include "tests/meta/support.h"

namespace vorrim {
namespace {

using test::hex;

TEST(FileHash, PrintsAndReadsHexadecimalInByteOrder) {
    const FileHash hash = FileHash::at(test::kCountingHash.data());
    EXPECT_EQ(hashToHex(hash), "000102030405060708090a0b0c0d0e0f");
    EXPECT_EQ(hexToHash("000102030405060708090A0b0C0d0e0F"), hash);
    EXPECT_EQ(hash.first_u32(), 0x03020100U);
    for (const char* bad :
         {"", "00", "000102030405060708090a0b0c0d0e0", "000102030405060708090a0b0c0d0e0f0",
          "000102030405060708090a0b0c0d0e0g", " 00102030405060708090a0b0c0d0e0f"}) {
        EXPECT_FALSE(hexToHash(bad)) << bad;
    }
}

TEST(FileHash, ComparesBytesAsUnsigned) {
    EXPECT_LT(*hexToHash("7f000000000000000000000000000000"),
              *hexToHash("80000000000000000000000000000000"));
    EXPECT_TRUE(FileHash{}.is_zero());
    EXPECT_FALSE(hexToHash("00000000000000000000000000000001")->is_zero());
}

TEST(FileHash, ReadNeedsAllSixteenBytes) {
    kx_memory_file stream = test::stream_of(test::kCountingHash);
    EXPECT_EQ(FileHash::read(stream), FileHash::at(test::kCountingHash.data()));
    kx_memory_file shorter = test::stream_of(std::span(test::kCountingHash).first(15));
    EXPECT_ANY_THROW((void)FileHash::read(shorter));
}

TEST(ClientId, TheLimitItselfIsNeitherHighNorLow) {
    struct Case {
        std::uint32_t value;
        bool high, low, recyclable;
    };
    for (const Case& c :
         {Case{0, false, true, false}, Case{1, false, true, true},
          Case{kHighestLowId - 1, false, true, true}, Case{kHighestLowId, false, false, false},
          Case{kHighestLowId + 1, true, false, false}}) {
        const ClientId id(c.value);
        EXPECT_EQ(id.exceeds_low_range(), c.high) << c.value;
        EXPECT_EQ(id.below_low_limit(), c.low) << c.value;
        EXPECT_EQ(id.recyclable(), c.recyclable) << c.value;
    }
}

TEST(Address, TextAndNumberAgree) {
    EXPECT_EQ(textToIp("1.2.3.4"), 0x04030201U);
    EXPECT_EQ(ipToText(0x04030201U), "1.2.3.4");
    EXPECT_EQ(ipToText(0x0100007FU), "127.0.0.1");
    EXPECT_EQ(ipToText(0xFFFFFFFFU), "255.255.255.255");
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

TEST(Opcodes, EveryCodeHasItsNameAndDirection) {
    EXPECT_EQ(find_opcode(0x16)->name, "OP_SEARCH_FILES");
    EXPECT_EQ(find_opcode(0x16)->direction, Direction::client_to_server);
    EXPECT_EQ(find_opcode(56)->name, "OP_SERVER_MESSAGE");
    EXPECT_EQ(find_opcode(100)->code, Opcode::CONT_LOGIN);
    EXPECT_EQ(find_opcode(102)->direction, Direction::admin_to_server);
    for (const std::byte code : hex("00 02 17 22 37 3E 44 63 67 95 9F A2 E3")) {
        EXPECT_EQ(find_opcode(std::to_integer<std::uint8_t>(code)), nullptr)
            << std::to_integer<int>(code);
    }
    EXPECT_EQ(kOpcodes.size(), 14U + 16U + 3U + 11U);
}

TEST(TagNames, AreThoseOfTheNetwork) {
    std::string all;
    for (std::int32_t id = 1; tag_row(id) != nullptr; ++id) {
        const TagRow& row = *tag_row(id);
        EXPECT_EQ(row.wire_name, std::string(1, static_cast<char>(id)));
        all += std::to_string(row.type) + (row.mark ? '*' : ' ') + std::string(row.display_name) +
               '\n';
    }
    EXPECT_EQ(all,
              "2*Name\n3 Size\n2 Type\n2 Format\n2*Collection Type\n2 Part path\n1 Part Hash\n"
              "3 part trans\n3 gap start\n3 gap end\n2*Description\n3 ping\n3 history\n3 pref\n"
              "3 Port\n3 IP\n3 Version\n2 tempFileName\n3 Priority\n3 state\n3 Availability\n"
              "3 QTime\n3 parts\n");
    for (const std::int32_t id : {0, 24, 0x30, -1, INT32_MIN})
        EXPECT_EQ(tag_row(id), nullptr) << id;
}

}  // namespace
}  // namespace vorrim
