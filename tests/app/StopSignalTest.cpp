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
        EXPECT_TRUE(stop.running());
        ::kill(::getpid(), signal);  // of no effect but this
        stop.wait();
        EXPECT_FALSE(stop.running());
        stop.wait();  // at once
    }
}

TEST(StopSignal, AnotherThreadEndsTheWait) {
    StopSignal stop;
    std::thread other([&] { stop.clear(); });
    stop.wait();
    EXPECT_FALSE(stop.running());
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
    ::kill(::getpid(), SIGTERM);
    stop.wait();
    std::signal(SIGHUP, SIG_DFL);
    sigset_t pending;
    sigpending(&pending);
    EXPECT_FALSE(sigismember(&pending, SIGHUP));
}

}  // namespace
}  // namespace vorrim
