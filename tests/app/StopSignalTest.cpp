#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <unistd.h>

#include "app/StopSignal.h"

namespace vorrim {
namespace {

bool is_blocked(int signal) {
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    return sigismember(&blocked, signal) == 1;
}

TEST(StopSignal, AfterAStopWithoutASignalTheSecondOneEndsTheProcess) {
    StopSignal stop;
    stop.endWaits();
    EXPECT_EXIT(
        {
            ::raise(SIGINT);
            ::raise(SIGTERM);
        },
        ::testing::KilledBySignal(SIGTERM), "");
    EXPECT_EXIT(
        {
            ::raise(SIGTERM);
            std::_Exit(7);
        },
        ::testing::ExitedWithCode(7), "");
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
}

TEST(StopSignal, AHangUpThatIsIgnoredStaysIgnored) {
    sigset_t hang_up;
    sigemptyset(&hang_up);
    sigaddset(&hang_up, SIGHUP);
    pthread_sigmask(SIG_UNBLOCK, &hang_up, nullptr);  // an earlier test has left it blocked
    std::signal(SIGHUP, SIG_IGN);
    const StopSignal stop;
    EXPECT_FALSE(is_blocked(SIGHUP));
    EXPECT_TRUE(is_blocked(SIGTERM));
    std::signal(SIGHUP, SIG_DFL);
}

}  // namespace
}  // namespace vorrim
