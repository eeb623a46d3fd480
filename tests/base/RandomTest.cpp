#include <array>
#include <gtest/gtest.h>

#include "base/Random.h"

namespace vorrim {
namespace {

// The generator's published sequence for the state that SplitMix64 makes of seed 0; a replay from
// an old seed must not change.
TEST(Random, KeepsItsSequence) {
    Random random(0);
    EXPECT_EQ(random.next_u64(), 0x99EC5F36CB75F2B4U);
    EXPECT_EQ(random.next_u64(), 0xBF6E1F784956452AU);
    EXPECT_EQ(random.next_u64(), 0x1A5F849D4933E6E0U);
}

TEST(Random, StaysBelowItsBoundAndReachesAllOfIt) {
    Random random(1);
    EXPECT_EQ(random.below(0), 0u);
    EXPECT_EQ(random.below(1), 0u);
    std::array<int, 5> seen{};
    for (int i = 0; i < 5000; ++i)
        ++seen.at(random.below(seen.size()));
    for (const int count : seen)
        EXPECT_NEAR(count, 1000, 200);
    constexpr std::uint64_t kHuge = (std::uint64_t{1} << 63U) + 1;
    for (int i = 0; i < 100; ++i)
        EXPECT_LT(random.below(kHuge), kHuge);
}

}  // namespace
}  // namespace vorrim
