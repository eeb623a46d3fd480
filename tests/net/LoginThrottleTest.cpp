#include <gtest/gtest.h>
#include <string>

#include "net/LoginThrottle.h"
#include "tests/base/ManualClock.h"
#include "tests/base/RecordingOutput.h"

namespace vorrim {
namespace {

using std::chrono::seconds;

class LoginThrottleTest : public ::testing::Test {
protected:
    static constexpr std::uint32_t kAttacker = 0x0A01'01C0;
    static constexpr std::uint32_t kOperator = 0x0B01'01C0;

    // How long a login from there has to wait; -1 when it is refused.
    int wait(std::uint32_t from) {
        const auto moment = throttle_.admit(from);
        return moment ? static_cast<int>((*moment - clock_.now()) / seconds(1)) : -1;
    }
    void fail(int times, seconds apart = seconds(1)) {
        for (int i = 0; i < times; ++i) {
            throttle_.failed(kAttacker);
            clock_.advance(apart);
        }
    }

    ManualClock clock_;
    RecordingOutput output_;
    LoginThrottle throttle_{clock_};
};

TEST_F(LoginThrottleTest, FailuresThatAreFarApartNeverSlow) {
    fail(50, seconds(16));  // never five within a minute
    EXPECT_EQ(wait(kAttacker), 0);
    fail(5, seconds(15));  // the first and the fifth are a minute apart
    EXPECT_GT(wait(kAttacker), 0);
}

TEST_F(LoginThrottleTest, LoginsThatComeAtOnceWaitBehindOneAnotherAndThenAreRefused) {
    fail(5, seconds(0));
    // Each waits twice as long as the one before, up to a minute.
    for (const int expected : {1, 3, 7, 15, 31, 63, 123, 183, 243, -1, -1})
        EXPECT_EQ(wait(kAttacker), expected);
    EXPECT_EQ(throttle_.slowed(), 11U);
    const std::string slowed = "Administrator logins slowed down: ";
    const std::string latest = ", the latest from 192.1.1.10\n";
    EXPECT_EQ(output_.take(), slowed + "1" + latest);
    clock_.advance(seconds(60));
    EXPECT_EQ(wait(kAttacker), 243);  // one of them has been looked at meanwhile
    EXPECT_EQ(output_.take(), slowed + "11" + latest);
}

TEST_F(LoginThrottleTest, AGoodLoginOrTenQuietMinutesWipeTheSlateClean) {
    fail(5, seconds(0));
    EXPECT_EQ(wait(kAttacker), 1);
    throttle_.succeeded(kAttacker);
    EXPECT_EQ(wait(kAttacker), 0);

    fail(5, seconds(0));
    EXPECT_EQ(wait(kAttacker), 1);
    clock_.advance(seconds(600));
    EXPECT_EQ(wait(kAttacker), 2);
    clock_.advance(seconds(603));
    EXPECT_EQ(wait(kAttacker), 0);
}

TEST_F(LoginThrottleTest, AFullTableForgetsTheAddressSeenLongestAgo) {
    fail(5);
    for (std::uint32_t i = 1; i < LoginThrottle::kMaxAddresses; ++i)
        throttle_.failed(kAttacker + i);
    throttle_.failed(kOperator);
    EXPECT_EQ(wait(kAttacker), 0);
    fail(5);
    throttle_.failed(kOperator + 1);
    EXPECT_EQ(wait(kAttacker), 1);
}

}  // namespace
}  // namespace vorrim
