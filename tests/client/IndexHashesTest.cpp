// The hashes on which the index stands.
#include <gtest/gtest.h>

#include "client/index/HashToEntry.h"
#include "client/index/keyword_hash.h"

namespace vorrim {
namespace {

TEST(IndexKeyedHash, IsSipHash13) {
    // Computed by a second implementation, which gives the published values with 2 and 4 rounds:
    // the key 00 01 ... 0F over the message 00 01 ... 0F.
    const KeyedHash keyed(0x0706050403020100, 0x0F0E0D0C0B0A0908);
    FileHash message;
    for (std::size_t i = 0; i < message.bytes.size(); ++i)
        message.bytes[i] = std::byte(i);
    EXPECT_EQ(keyed.of(message), 0xCC4FDD1A7D908B66u);
}

TEST(IndexKeywordHash, HasTheValuesThatEveryServerOfTheNetworkComputes) {
    EXPECT_EQ(keyword_hash("a"), 0xCA2E9442u);
    EXPECT_EQ(keyword_hash("abc"), 0xED131F5Bu);
    EXPECT_EQ(keyword_hash("ABC"), 0xED131F5Bu);
    EXPECT_EQ(keyword_hash("the"), 0xF9B5DBC0u);  // differ with unsigned shifts
    EXPECT_EQ(keyword_hash("best"), 0x467256DDu);
    EXPECT_EQ(keyword_hash(""), 1u);                        // 0 names no word
    EXPECT_NE(keyword_hash("\xC9"), keyword_hash("\xE9"));  // only A to Z are folded
}

}  // namespace
}  // namespace vorrim
