#include <array>
#include <chrono>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "app/ServerOutput.h"
#include "base/kx_err.h"
#include "tests/ScratchFolder.h"

namespace vorrim {
namespace {

// A pipe in the place of the console.
class ServerOutputTest : public ::testing::Test {
protected:
    ServerOutputTest() {
        if (::pipe2(ends_.data(), O_CLOEXEC) != 0) std::abort();
        ::fcntl(ends_[0], F_SETFL, O_NONBLOCK);
        console_ = std::make_unique<OutputWriter>("console", console_sink(ends_[1]));
    }
    ~ServerOutputTest() override {
        close_reader();
        ::close(ends_[1]);
    }

    std::string shown() {
        console_->flush(OutputWriter::kLastPatience);
        return take_shown();
    }
    std::string take_shown() {
        std::string text;
        std::array<char, 65536> room{};
        for (ssize_t count = 0; (count = ::read(ends_[0], room.data(), room.size())) > 0;)
            text.append(room.data(), static_cast<std::size_t>(count));
        return text;
    }
    std::string logged(Output& output) const {
        output.flush();
        return folder_.read("log");
    }
    void close_reader() {
        if (ends_[0] >= 0) ::close(ends_[0]);
        ends_[0] = -1;
    }

    CurrentFolder folder_;
    ServerSettings settings_;
    std::array<int, 2> ends_{-1, -1};
    std::unique_ptr<OutputWriter> console_;
};

TEST_F(ServerOutputTest, TextsAreCutAtTheBuffersAndNeverReadAsFormats) {
    ServerOutput output(settings_, *console_);
    const std::string text = std::string(250, '%') + std::string(1000, 's');
    output.printLine("%s", text.c_str());
    EXPECT_EQ(shown(), text.substr(0, 255) + "\n");
    output.printError("%s", text.c_str());
    EXPECT_EQ(shown(), text.substr(0, 255));
    output.printLocked("%s", text.c_str());
    EXPECT_EQ(shown(), text.substr(0, 511));
    output.printLine("%s", text.substr(0, 255).c_str());
    EXPECT_EQ(shown(), text.substr(0, 255) + "\n");
}

TEST_F(ServerOutputTest, TextsOfManyThreadsStayWhole) {
    ServerOutput output(settings_, *console_);
    settings_.logFile = true;
    constexpr int kThreads = 4;
    constexpr int kTexts = 50;
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&output, line = std::string(100, static_cast<char>('a' + i))] {
            for (int n = 0; n < kTexts; ++n)
                output.printLine("%s", line.c_str());
        });
    threads.clear();  // waits for them
    for (const std::string& text : {shown(), logged(output)}) {
        ASSERT_EQ(text.size(), 101U * kThreads * kTexts);
        for (std::size_t at = 0; at < text.size(); at += 101)
            EXPECT_EQ(text.substr(at, 101), std::string(100, text[at]) + "\n");
    }
}

// Lines shown and lines that were told to be missing, together; each of them is alike.
std::size_t accounted_for(const std::string& text, const std::string& line,
                          const std::string& sink) {
    const std::string begin = "(the " + sink + " was full: ";
    std::size_t count = 0;
    std::istringstream lines(text);
    for (std::string one; std::getline(lines, one);) {
        if (one == line) ++count;
        if (one.starts_with(begin)) count += std::stoul(one.substr(begin.size()));
    }
    return count;
}

constexpr std::size_t kManyLines = 4000;  // more than a pipe and the queue hold
const std::string kLine(200, 'x');

TEST_F(ServerOutputTest, AConsoleThatNobodyReadsCostsMessagesButNeverAWait) {
    ServerOutput output(settings_, *console_);
    settings_.logFile = true;
    for (std::size_t n = 0; n < kManyLines; ++n) {
        output.printLine("%s", kLine.c_str());
        // The log goes its own way.
        while (std::filesystem::file_size("log") < (n - n % 500) * (kLine.size() + 1))
            std::this_thread::yield();
    }
    output.printLine("late");  // is missing too, though there is room for something so short
    std::string text;
    while (!console_->flush(std::chrono::milliseconds(1)))
        text += take_shown();
    text += take_shown();
    EXPECT_TRUE(text.ends_with(" messages are missing)\n")) << "told before anybody prints";
    output.printLine("back again");
    text += shown();
    EXPECT_TRUE(text.starts_with(kLine + '\n' + kLine));
    EXPECT_TRUE(text.ends_with(" messages are missing)\nback again\n"));
    EXPECT_GE(text.size(), OutputWriter::kBound);
    EXPECT_EQ(accounted_for(text, kLine, "console"), kManyLines + 1);
}

// All of it is made behind the fork: a thread that is there before may hold a lock at that moment.
TEST(ServerOutputDeathTest, WhatWasPrintedBeforeAnErrorThatEndsTheProcessIsInTheLog) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer ends a forked process that starts threads";
#endif
    const CurrentFolder folder;
    ServerSettings settings;
    settings.logFile = true;
    settings.console = false;
    EXPECT_EXIT(
        {
            OutputWriter console("console", console_sink(STDOUT_FILENO));
            ServerOutput output(settings, console);
            const ScopedOutput current(output);
            for (int n = 0; n < 1000; ++n)
                output.printLine("%s", kLine.c_str());
            kx_fatal_error(kx_err("boom"));
        },
        ::testing::ExitedWithCode(255), "boom");
    EXPECT_EQ(folder.read("log").size(), 1000 * (kLine.size() + 1));
}

TEST(OutputWriterTest, WhatAFailingSinkLosesIsCounted) {
    const CurrentFolder folder;
    OutputWriter log("log", FileSink::for_log("/dev/full"));
    for (int n = 0; n < 100; ++n)
        log.print("lost\n");
    EXPECT_TRUE(log.flush(OutputWriter::kLastPatience));
    log.change_sink(FileSink::for_log("log"));
    log.print("back\n");
    EXPECT_TRUE(log.flush(OutputWriter::kLastPatience));
    EXPECT_EQ(folder.read("log"), "(the log was full: 100 messages are missing)\nback\n");
}

// The operator's command `vo` prints the administrator's password.
TEST(OutputWriterTest, NobodyElseMayReadTheLog) {
    const CurrentFolder folder;
    const mode_t before = ::umask(0);
    const auto log = FileSink::for_log("log");
    ::umask(before);
    ASSERT_NE(log, nullptr);
    EXPECT_EQ(std::filesystem::status("log").permissions(), std::filesystem::perms{0640});
}

TEST_F(ServerOutputTest, NeitherAClosedConsoleNorALogThatCannotBeWrittenMatters) {
    settings_.logFile = true;
    ::signal(SIGPIPE, SIG_IGN);
    ServerOutput full(settings_, *console_, "/dev/full");
    full.printLine("shown");
    EXPECT_EQ(shown(), "shown\n");
    ServerOutput none(settings_, *console_, "no/such/folder/log");
    none.printLine("shown");
    EXPECT_EQ(shown(), "shown\n");
    close_reader();
    ServerOutput deaf(settings_, *console_);
    deaf.printLine("logged");
    EXPECT_EQ(logged(deaf), "logged\n");
}

}  // namespace
}  // namespace vorrim
