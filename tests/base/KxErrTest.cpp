#include <gtest/gtest.h>
#include <string>
#include <thread>

#include "base/kx_err.h"
#include "base/string/kx_string.h"
#include "tests/base/RecordingOutput.h"

namespace vorrim {
namespace {

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

TEST(KxErrorDeathTest, EndsTheProcessWhenNobodyCanGoOn) {
    EXPECT_EXIT(
        {
            kx_set_error_location("disk.cpp", 3);
            kx_fatal_error(kx_err("boom"));
        },
        ::testing::ExitedWithCode(255), "Unrecoverable error at disk.cpp:3: boom\n");
}

// In a process of its own, since it cannot be undone.
TEST(ConsoleModeDeathTest, SendsEverythingToTheConsoleAndBoxesToTheLog) {
    EXPECT_EXIT(
        {
            kx_enter_console_mode();
            RecordingOutput output;
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
