#include <array>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "app/ServerOutput.h"
#include "tests/app/support.h"

namespace vorrim {
namespace {

// A pipe in the place of the console.
class ServerOutputTest : public ::testing::Test {
protected:
    ServerOutputTest() {
        if (::pipe2(ends_.data(), O_CLOEXEC) != 0) std::abort();
        ::fcntl(ends_[0], F_SETFL, O_NONBLOCK);
    }
    ~ServerOutputTest() override {
        close_reader();
        ::close(ends_[1]);
    }

    std::string shown() {
        std::string text;
        std::array<char, 65536> room{};
        for (ssize_t count = 0; (count = ::read(ends_[0], room.data(), room.size())) > 0;)
            text.append(room.data(), static_cast<std::size_t>(count));
        return text;
    }
    void close_reader() {
        if (ends_[0] >= 0) ::close(ends_[0]);
        ends_[0] = -1;
    }
    void print_one_of_each(Output& output) {
        output.printLine("line %d", 1);
        output.printError("error %d\n", 2);
        output.printVerbose("verbose %d\n", 3);
        output.printLocked("locked %d\n", 4);
        output.notify("notice");
    }

    ScratchFolder folder_;
    ServerSettings settings_;
    std::array<int, 2> ends_{-1, -1};
};

TEST_F(ServerOutputTest, TheSettingsDecideWithEachMessageWhereItGoes) {
    ScratchFolder::write("log", "of an earlier run\n");
    ServerOutput output(settings_, "log", ends_[1]);
    output.printLine("before the settings");
    EXPECT_EQ(shown(), "before the settings\n");
    EXPECT_EQ(ScratchFolder::read("log"), "of an earlier run\n");

    settings_.logFile = true;
    print_one_of_each(output);
    const std::string three = "line 1\nerror 2\nlocked 4\n";
    EXPECT_EQ(shown(), three);
    EXPECT_EQ(ScratchFolder::read("log"), "of an earlier run\n" + three);

    settings_.console = false;
    output.set_verbose(true);
    output.printVerbose("verbose %d\n", 3);
    output.log("in the log alone\n");
    EXPECT_EQ(shown(), "");
    EXPECT_EQ(ScratchFolder::read("log"),
              "of an earlier run\n" + three + "verbose 3\nin the log alone\n");

    settings_.logFile = false;
    print_one_of_each(output);
    EXPECT_EQ(shown(), "");
}

TEST_F(ServerOutputTest, TheLogIsCreatedWhateverTheSettingsSay) {
    const ServerOutput output(settings_, "log", ends_[1]);
    EXPECT_TRUE(std::filesystem::exists("log"));
}

TEST_F(ServerOutputTest, TextsAreCutAtTheBuffersAndNeverReadAsFormats) {
    ServerOutput output(settings_, "log", ends_[1]);
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
    ServerOutput output(settings_, "log", ends_[1]);
    settings_.logFile = true;
    constexpr int kThreads = 4;
    constexpr int kTexts = 50;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&output, line = std::string(100, static_cast<char>('a' + i))] {
            for (int n = 0; n < kTexts; ++n)
                output.printLine("%s", line.c_str());
        });
    for (std::thread& thread : threads)
        thread.join();
    for (const std::string& text : {shown(), ScratchFolder::read("log")}) {
        ASSERT_EQ(text.size(), 101U * kThreads * kTexts);
        for (std::size_t at = 0; at < text.size(); at += 101)
            EXPECT_EQ(text.substr(at, 101), std::string(100, text[at]) + "\n");
    }
}

TEST_F(ServerOutputTest, AConsoleThatNobodyReadsCostsMessagesAndNotTheServer) {
    ServerOutput output(settings_, "log", ends_[1]);
    const std::string line(200, 'x');
    for (int n = 0; n < 1000; ++n)
        output.printLine("%s", line.c_str());  // more than a pipe holds
    const std::string first = shown();
    EXPECT_GE(first.size(), 4096U);
    EXPECT_LT(first.size(), 201U * 1000);
    const std::size_t missing = 1000 - first.size() / 201;
    output.printLine("back again");
    EXPECT_EQ(shown(), "(the console was full: " + std::to_string(missing) +
                           " messages are missing)\nback again\n");
}

TEST_F(ServerOutputTest, NeitherAClosedConsoleNorALogThatCannotBeWrittenMatters) {
    settings_.logFile = true;
    ::signal(SIGPIPE, SIG_IGN);
    ServerOutput full(settings_, "/dev/full", ends_[1]);
    full.printLine("shown");
    EXPECT_EQ(shown(), "shown\n");
    ServerOutput none(settings_, "no/such/folder/log", ends_[1]);
    none.printLine("shown");
    EXPECT_EQ(shown(), "shown\n");
    close_reader();
    ServerOutput deaf(settings_, "log", ends_[1]);
    deaf.printLine("logged");
    EXPECT_EQ(ScratchFolder::read("log"), "logged\n");
}

}  // namespace
}  // namespace vorrim
