#include <array>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "app/StandardInput.h"
#include "app/StopSignal.h"

namespace vorrim {
namespace {

bool is_blocked(int signal) {
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    return sigismember(&blocked, signal) == 1;
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

TEST(StopSignal, OutrunsLinesThatWait) {
    StopSignal stop;
    std::array<int, 2> lines{};
    ASSERT_EQ(::pipe2(lines.data(), O_CLOEXEC), 0);
    const std::string two = "one\ntwo\n";
    ASSERT_EQ(::write(lines[1], two.data(), two.size()), static_cast<ssize_t>(two.size()));
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    {
        OutputWriter output("console", console_sink(nowhere));
        StandardInput input(stop, lines[0], output);
        std::string line;
        EXPECT_EQ(input.readLine("> ", 99, ConsoleInput::Wake::waits, line),
                  ConsoleInput::Event::line);
        EXPECT_EQ(line, "one");
        ::kill(::getpid(), SIGTERM);
        EXPECT_EQ(input.readLine("> ", 99, ConsoleInput::Wake::waits, line),
                  ConsoleInput::Event::stopped);
    }
    for (const int descriptor : {lines[0], lines[1], nowhere})
        ::close(descriptor);
}

}  // namespace
}  // namespace vorrim
