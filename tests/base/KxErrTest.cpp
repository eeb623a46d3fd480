#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "base/file/kx_memory_file.h"
#include "base/kx_debug_console.h"
#include "base/kx_err.h"
#include "base/string/kx_string.h"
#include "platform/debugger_channel.h"
#include "platform/message_box.h"
#include "tests/base/RecordingOutput.h"

namespace vorrim {
namespace {

std::string caught(const char* text) {
    try {
        kx_error(text);
    } catch (const kx_err& error) {
        return error.message();
    }
}

TEST(KxError, ThrowsItsTextAsItIsCutTo499) {
    EXPECT_EQ(caught("100%d off"), "100%d off");
    EXPECT_EQ(caught(std::string(499, 'x').c_str()), std::string(499, 'x'));
    EXPECT_EQ(caught((std::string(499, 'x') + "y").c_str()), std::string(499, 'x'));
}

TEST(KxError, KeepsTheLocationOfEachThread) {
    kx_error_location other;
    std::string fresh_caption;
    EXPECT_THROW(kx_error("here", "here.cpp", 17), kx_err);
    std::thread([&] {
        fresh_caption = kx_fatal_caption();
        EXPECT_THROW(kx_error("there"), kx_err);
        other = kx_get_error_location();
    }).join();
    EXPECT_EQ(fresh_caption, "Unrecoverable error");
    EXPECT_TRUE(std::string(other.file).ends_with("KxErrTest.cpp"));
    EXPECT_GT(other.line, 0);
    EXPECT_EQ(kx_fatal_caption(), "Unrecoverable error at here.cpp:17");
}

TEST(KxError, CutsALongCaption) {
    const std::string file(300, 'f');
    kx_set_error_location(file.c_str(), 1);
    EXPECT_EQ(kx_fatal_caption().size(), kCaptionText - 1);
    kx_set_error_location(nullptr, 0);
}

TEST(KxError, IsRaisedEvenByAHandlerThatReturns) {
    kx_error_handler = [](const char*) {};
    EXPECT_EQ(caught("still"), "still");
    kx_error_handler = &kx_default_error_handler;
}

TEST(KxErrorDeathTest, EndsTheProcessWhenNobodyCanGoOn) {
    EXPECT_EXIT(
        {
            kx_set_error_location("disk.cpp", 3);
            kx_fatal_error(kx_err("boom"));
        },
        ::testing::ExitedWithCode(255), "Unrecoverable error at disk.cpp:3: boom\n");
}

TEST(KxError, LeavesTheProgramWithStatusOneEitherWay) {
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(kx_run_main([] {}), 1);
    EXPECT_EQ(kx_run_main([] { kx_error("boom", "main.cpp", 9); }), 1);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "Unrecoverable error at main.cpp:9: boom\n");
}

// Puts the diagnostic stream into memory and the process back as it was.
class Reports : public ::testing::Test {
protected:
    Reports() { kx_set_debug_stream(&stream_); }
    ~Reports() override {
        kx_set_debug_stream(nullptr);
        set_debugger_hook(nullptr);
        set_message_box_hook(nullptr);
        pieces().clear();
    }
    std::string streamed() const {
        return {reinterpret_cast<const char*>(stream_.contents().data()), stream_.size()};
    }
    static std::vector<std::string>& pieces() {
        static std::vector<std::string> all;
        return all;
    }

    kx_memory_file stream_{64};
};

TEST_F(Reports, OfTheDefaultHandlersGoToTheDebugStream) {
    kx_set_error_location(nullptr, 0);
    EXPECT_EQ(kx_warning_handler.load()("low"), 0);
    kx_set_error_location("w.cpp", 5);
    EXPECT_EQ(kx_warning_handler.load()("lower"), 0);
    EXPECT_EQ(kx_alert_handler.load()(kx_string("look")), 0);
    EXPECT_EQ(streamed(), "Warning low\nWarning (w.cpp:5) : lower\nlook");
}

TEST_F(Reports, OfTheBoxHandlersGoToTheBoxTheLogAndTheDebugger) {
    set_debugger_hook([](std::string_view text) { pieces().emplace_back(text); });
    set_message_box_hook([](std::string_view caption, std::string_view text) {
        pieces().push_back(std::string(caption) + "|" + std::string(text));
    });
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(kx_message_box_warning_handler("hot"), 1);
    EXPECT_EQ(kx_message_box_alert_handler(kx_string("now")), 1);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Warning!: hot\nAlert: now\n");
    EXPECT_EQ(pieces(), (std::vector<std::string>{"hot", "\n", "Warning!|hot", "Alert|now"}));
    EXPECT_EQ(streamed(), "Alert : now");
}

TEST_F(Reports, OfTheDebugConsoleGoOutWholeUpTo1023Bytes) {
    set_debugger_hook([](std::string_view text) { pieces().emplace_back(text); });
    kx_debug_console console;
    EXPECT_EQ(console.write(std::string(1023, 'x').data(), 1023), 1023);
    EXPECT_EQ(pieces().size(), 1u);
    EXPECT_EQ(console.write(std::string(1024, 'x').data(), 1024), 1024);
    EXPECT_EQ(pieces().size(), 1025u);
    EXPECT_EQ(console.write("ab\0cd", 5), 5);
    EXPECT_EQ(pieces().back(), "ab");
}

// In a process of its own, since it cannot be undone.
TEST(ConsoleModeDeathTest, SendsEverythingToTheConsoleAndBoxesToTheLog) {
    EXPECT_EXIT(
        {
            kx_enter_console_mode();
            vorrim::testing::RecordingOutput output;
            const ScopedOutput scope(output);
            ::testing::internal::CaptureStdout();
            kx_alert_handler.load()(kx_string("now"));
            const bool shown = ::testing::internal::GetCapturedStdout() == "Alert : now";
            const bool logged = output.all() == "Alert: now\n";
            std::_Exit(shown && logged && kx_warning_handler.load()("w") == 1 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace vorrim
