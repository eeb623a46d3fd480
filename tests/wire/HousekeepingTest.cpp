// What the server does by itself from time to time. The first status to everybody is due a minute
// after the start, so this test runs only where VORRIM_SLOW_TESTS is set.
#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>

#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

TEST(Housekeeping, EverybodyGetsTheStatusAMinuteAfterTheStart) {
    if (!std::getenv("VORRIM_SLOW_TESTS"))
        GTEST_SKIP() << "takes a minute; set VORRIM_SLOW_TESTS to run it";
    const auto start = std::chrono::steady_clock::now();
    const ServerProcess server;
    const WireClient stranger(server);
    const WireClient client = WireClient::low(server);
    client.publish({file(hash_of(1), "a"), file(hash_of(2), "b"), file(hash_of(3), "c")});
    EXPECT_TRUE(stranger.socket().readable(std::chrono::seconds(75)));
    EXPECT_EQ(stranger.receive_packet(), hex("E3 09 00 00 00 34 02 00 00 00 03 00 00 00"));
    EXPECT_EQ(client.receive_packet(), hex("E3 09 00 00 00 34 02 00 00 00 03 00 00 00"));
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::seconds(59));
    EXPECT_LT(waited, std::chrono::seconds(70));
}

}  // namespace
}  // namespace vorrim::wire
