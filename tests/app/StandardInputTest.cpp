#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>

#include "app/Console.h"
#include "app/StandardInput.h"

namespace vorrim {
namespace {

class StandardInputTest : public ::testing::Test {
protected:
    using Event = ConsoleInput::Event;

    void SetUp() override {
        ASSERT_EQ(::pipe2(lines_, O_CLOEXEC), 0);
        ASSERT_EQ(::pipe2(shown_, O_CLOEXEC | O_NONBLOCK), 0);
        output_ = std::make_unique<OutputWriter>("console", console_sink(shown_[1]));
        input_ = std::make_unique<StandardInput>(stop_, lines_[0], *output_);
    }
    void TearDown() override {
        end();
        input_.reset();
        output_.reset();  // it may be writing still
        ::close(lines_[0]);
        ::close(shown_[0]);
        ::close(shown_[1]);
    }
    void type(const std::string& text) {
        ASSERT_EQ(::write(lines_[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    void end() {
        if (lines_[1] >= 0) ::close(lines_[1]);
        lines_[1] = -1;
    }
    // The next line, or what came instead, in angle brackets.
    std::string next(std::size_t limit = Console::kLongestLine) {
        std::string line;
        switch (input_->readLine("> ", limit, line)) {
            case Event::line:
                return line;
            case Event::ended:
                return "<ended>";
            case Event::stopped:
                return "<stopped>";
            case Event::woken:
                break;
        }
        return "<woken>";
    }
    std::string shown() {
        output_->flush(OutputWriter::kLastPatience);
        std::string text(256, '\0');
        const ssize_t count = ::read(shown_[0], text.data(), text.size());
        text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
        return text;
    }

    StopSignal stop_;
    int lines_[2] = {-1, -1};
    int shown_[2] = {-1, -1};
    std::unique_ptr<OutputWriter> output_;
    std::unique_ptr<StandardInput> input_;
};

TEST_F(StandardInputTest, LinesComeOneByOneHoweverTheyWereWritten) {
    type("one\n\n two \nth");
    EXPECT_EQ(next(), "one");
    EXPECT_EQ(next(), "");
    EXPECT_EQ(next(), " two ");
    std::thread later([this] { type("ree\n"); });
    EXPECT_EQ(next(), "three");
    later.join();
    EXPECT_EQ(shown(), "> > > > ");
}

TEST_F(StandardInputTest, TheLastLineNeedsNoNewlineAndThenItHasEndedForGood) {
    type("one\nlast");
    end();
    EXPECT_EQ(next(), "one");
    EXPECT_EQ(next(), "last");
    EXPECT_EQ(next(), "<ended>");
    EXPECT_EQ(next(), "<ended>");
}

TEST_F(StandardInputTest, WhatIsTooLongIsDroppedAndNeverRunsAsTheNextLine) {
    const std::string longest(Console::kLongestLine, 'a');
    type(longest + '\n' + longest + "q\n" + std::string(20'000, 'b') + "\nnext\n");
    EXPECT_EQ(next(), longest);
    EXPECT_EQ(next(), longest);
    EXPECT_EQ(next(), std::string(Console::kLongestLine, 'b'));
    EXPECT_EQ(next(3), "nex");
    type(longest + "q");
    end();
    EXPECT_EQ(next(), longest);
    EXPECT_EQ(next(), "<ended>");
}

TEST_F(StandardInputTest, ALineEndsAtItsFirstNul) {
    type(std::string("g\0q\n\0\nx\n", 8));
    EXPECT_EQ(next(), "g");
    EXPECT_EQ(next(), "");
    EXPECT_EQ(next(), "x");
}

TEST_F(StandardInputTest, ASignalEndsTheWaitAndOutrunsLinesThatWait) {
    std::thread later([] { ::kill(::getpid(), SIGTERM); });
    EXPECT_EQ(next(), "<stopped>");
    later.join();
    type("g\n");
    EXPECT_EQ(next(), "<stopped>");
    EXPECT_EQ(input_->wait(), Event::stopped);
}

TEST_F(StandardInputTest, AWakeEndsTheQuietWaitButNotTheWaitForALine) {
    input_->wake();
    std::thread later([this] { type("g\n"); });
    EXPECT_EQ(next(), "g");
    later.join();
    EXPECT_EQ(input_->wait(), Event::woken);
    std::thread waker([this] { input_->wake(); });
    EXPECT_EQ(input_->wait(), Event::woken);
    waker.join();
}

TEST_F(StandardInputTest, ADescriptorThatIsClosedOrFailsHasEnded) {
    const int closed = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ::close(closed);
    const int unreadable = ::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (const int descriptor : {closed, unreadable}) {
        input_ = std::make_unique<StandardInput>(stop_, descriptor, *output_);
        EXPECT_EQ(next(), "<ended>") << descriptor;
    }
    ::close(unreadable);
}

}  // namespace
}  // namespace vorrim
