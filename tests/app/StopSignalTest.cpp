#include <csignal>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

#include "app/StopSignal.h"

namespace vorrim {
namespace {

TEST(StopSignal, EachOfTheSignalsEndsTheWait) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        StopSignal stop;
        EXPECT_FALSE(stop.signalled());
        ::kill(::getpid(), signal);  // of no effect but this
        EXPECT_EQ(stop.wait(), StopSignal::Event::signalled);
        EXPECT_TRUE(stop.signalled());
        stop.wake();
        EXPECT_EQ(stop.wait(), StopSignal::Event::signalled);  // at once, and for ever
        EXPECT_EQ(stop.waitReadable(-1), StopSignal::Event::signalled);
    }
}

TEST(StopSignal, AnotherThreadEndsTheWait) {
    StopSignal stop;
    std::thread other([&] { stop.wake(); });
    EXPECT_EQ(stop.wait(), StopSignal::Event::woken);
    EXPECT_FALSE(stop.signalled());
    other.join();
}

TEST(StopSignal, AHangUpThatIsIgnoredStaysIgnored) {
    sigset_t hang_up;
    sigemptyset(&hang_up);
    sigaddset(&hang_up, SIGHUP);
    pthread_sigmask(SIG_UNBLOCK, &hang_up, nullptr);  // an earlier test has left it blocked
    std::signal(SIGHUP, SIG_IGN);
    StopSignal stop;
    ::kill(::getpid(), SIGHUP);
    EXPECT_FALSE(stop.signalled());
    ::kill(::getpid(), SIGTERM);
    EXPECT_EQ(stop.wait(), StopSignal::Event::signalled);
    std::signal(SIGHUP, SIG_DFL);
    sigset_t pending;
    sigpending(&pending);
    EXPECT_FALSE(sigismember(&pending, SIGHUP));
}

}  // namespace
}  // namespace vorrim
