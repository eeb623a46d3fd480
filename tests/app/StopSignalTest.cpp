#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <pty.h>
#include <thread>
#include <unistd.h>

#include "app/StopSignal.h"

namespace vorrim {
namespace {

bool is_blocked(int signal) {
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    return sigismember(&blocked, signal) == 1;
}

TEST(StopSignal, EitherSignalEndsTheWaitsAndASecondOneTheProcess) {
    for (const int signal : {SIGINT, SIGTERM}) {
        StopSignal stop;
        EXPECT_FALSE(stop.signalled());
        ::kill(::getpid(), signal);  // of no effect but this
        EXPECT_EQ(stop.wait(), StopSignal::Event::signalled);
        EXPECT_TRUE(stop.signalled());
        stop.wake();
        EXPECT_EQ(stop.wait(), StopSignal::Event::signalled);  // at once, and for ever
        EXPECT_EQ(stop.waitReadable(-1), StopSignal::Event::signalled);
        EXPECT_EXIT(::raise(SIGTERM), ::testing::KilledBySignal(SIGTERM), "");
        EXPECT_EXIT(::raise(SIGINT), ::testing::KilledBySignal(SIGINT), "");
    }
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

TEST(StopSignal, AnotherThreadEndsTheWait) {
    StopSignal stop;
    std::thread other([&] { stop.wake(); });
    EXPECT_EQ(stop.wait(), StopSignal::Event::woken);
    EXPECT_FALSE(stop.signalled());
    other.join();
}

TEST(StopSignal, AHangUpIsNoStopUnlessItsTerminalIsGone) {
    int person = -1;
    int terminal = -1;
    ASSERT_EQ(::openpty(&person, &terminal, nullptr, nullptr, nullptr), 0);
    StopSignal stop(terminal);
    int hang_ups = 0;
    stop.onHangUp([&] {
        ++hang_ups;
        stop.wake();
    });
    ::kill(::getpid(), SIGHUP);
    EXPECT_EQ(stop.wait(), StopSignal::Event::woken);
    EXPECT_EQ(hang_ups, 1);
    ::close(person);
    ::kill(::getpid(), SIGHUP);
    EXPECT_EQ(stop.wait(), StopSignal::Event::signalled);
    EXPECT_EQ(hang_ups, 1);
    ::close(terminal);
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
