// Errors and the threads that raise them; services at the start and at the end.
#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "base/kx_err.h"
#include "base/kx_init.h"
#include "base/kx_thread_registry.h"
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
    EXPECT_TRUE(std::string(other.file).ends_with("ThreadsTest.cpp"));
    EXPECT_GT(other.line, 0);
    EXPECT_EQ(kx_fatal_caption(), "Unrecoverable error at here.cpp:17");
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
            const bool logged = output.take() == "Alert: now\n";
            std::_Exit(shown && logged && kx_warning_handler.load()("w") == 1 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

constexpr std::size_t kStack = 0xC800;

bool runs(kx_thread_id id) {
    const std::vector<kx_thread_id> all = kx_running_threads();
    return std::find(all.begin(), all.end(), id) != all.end();
}

TEST(Threads, EndSilentlyWhenTheyAskTo) {
    kx_thread_id id = 0;
    kx_thread_handle thread = kx_thread_create(
        [&id] {
            id = kx_current_thread_id();
            throw kx_exit_thread_exception();
        },
        kStack);
    ASSERT_TRUE(thread);
    thread.join();
    EXPECT_NE(id, 0);
    EXPECT_FALSE(runs(id));
}

TEST(Threads, AreRefusedAnImpossibleStack) {
    bool ran = false;
    EXPECT_FALSE(kx_thread_create([&ran] { ran = true; }, std::size_t{1} << 60U));
    EXPECT_FALSE(ran);
}

TEST(ThreadsDeathTest, EndTheProcessWithAnErrorThatTheyDoNotCatch) {
    EXPECT_EXIT(kx_thread_create([] { kx_error("lost", "task.cpp", 8); }, kStack).join(),
                ::testing::ExitedWithCode(255), "Unrecoverable error at task.cpp:8: lost\n");
    const auto find_no_memory = [] {
        kx_set_error_location("earlier.cpp", 9);
        throw std::bad_alloc();
    };
    EXPECT_EXIT(kx_thread_create(find_no_memory, kStack).join(), ::testing::ExitedWithCode(255),
                "Unrecoverable error: out of memory");
    EXPECT_EXIT(std::_Exit(kx_run_main(find_no_memory)), ::testing::ExitedWithCode(1),
                "Unrecoverable error: out of memory");
}

// Writes down when it is called, and whether the main thread was recorded then.
class Service final : public kx_init_object {
public:
    Service(int priority, std::string& log) : priority_(priority), log_(log) {}
    int priority() const noexcept override { return priority_; }
    void init() override { note('+'); }
    void uninit() override { note('-'); }

private:
    void note(char what) {
        log_ += what + std::to_string(priority_) + (runs(kx_current_thread_id()) ? "m" : "") +
                (kx_initialised() ? "i " : " ");
    }

    int priority_;
    std::string& log_;
};

TEST(Init, CallsServicesByPriorityAndBackwards) {
    std::string log;
    const Service last(9, log);
    const Service first(0, log);
    const Service also_last(9, log);
    { const Service gone(5, log); }
    const Service middle(5, log);
    const Service never(10, log);
    kx_init();
    EXPECT_TRUE(kx_initialised());
    EXPECT_EQ(log, "+0 +5mi +9mi +9mi ");
    log.clear();
    kx_uninit();
    EXPECT_EQ(log, "-9mi -9mi -5mi -0i ");
    EXPECT_FALSE(kx_initialised());
}

}  // namespace
}  // namespace vorrim
