#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "base/kx_err.h"
#include "base/kx_init.h"
#include "base/kx_thread_registry.h"

namespace vorrim {
namespace {

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
                ::testing::ExitedWithCode(255), "Unrecoverable error at task.cpp:8: lost");
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
        log_ += what;
        log_ += std::to_string(priority_);
        if (runs(kx_current_thread_id())) log_ += 'm';
        if (kx_initialised()) log_ += 'i';
        log_ += ' ';
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
