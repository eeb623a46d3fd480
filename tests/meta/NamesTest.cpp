#include <gtest/gtest.h>

#include "meta/ClientId.h"
#include "meta/FileHash.h"
#include "tests/meta/support.h"

namespace vorrim {
namespace {

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
