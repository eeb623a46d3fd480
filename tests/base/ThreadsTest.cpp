#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "base/kx_critical_section.h"
#include "base/kx_err.h"
#include "base/kx_init.h"
#include "base/kx_semaphore.h"
#include "base/kx_shared_section.h"
#include "base/kx_thread_registry.h"
#include "base/kx_timer.h"

namespace vorrim {
namespace {

using std::chrono::milliseconds;

constexpr std::size_t kStack = 0xC800;

bool runs(kx_thread_id id) {
    const std::vector<kx_thread_id> all = kx_running_threads();
    return std::find(all.begin(), all.end(), id) != all.end();
}

TEST(CriticalSection, IsLeftHoweverItsScopeEnds) {
    kx_critical_section section;
    try {
        const kx_guard hold(section);
        throw kx_err("out");
    } catch (const kx_err&) {
    }
    const bool entered = section.try_enter();
    EXPECT_TRUE(entered);
    if (entered) {
        std::thread([&section] {
            const bool second = section.try_enter();
            EXPECT_FALSE(second);
            if (second) section.leave();
        }).join();
        section.leave();
    }
}

TEST(SharedSection, LetsReadersInTogetherAndWritersAlone) {
    kx_shared_section section;
    kx_semaphore reading;
    int value = 0;
    {
        const kx_read_guard first(section);
        // Would never return if readers kept each other out.
        std::thread([&section] { const kx_read_guard second(section); }).join();
    }
    std::vector<std::thread> writers;
    for (int i = 0; i < 4; ++i) {
        writers.emplace_back([&section, &value] {
            for (int n = 0; n < 1000; ++n) {
                const kx_write_guard hold(section);
                ++value;
            }
        });
    }
    for (std::thread& writer : writers)
        writer.join();
    EXPECT_EQ(value, 4000);
}

TEST(Semaphore, CountsReleasesAndWaitsWithoutLimitForZero) {
    kx_semaphore semaphore;
    EXPECT_FALSE(semaphore.wait(milliseconds(1)));
    semaphore.release();
    semaphore.release();
    EXPECT_TRUE(semaphore.wait(milliseconds(1)));
    EXPECT_TRUE(semaphore.wait(milliseconds(0)));
    EXPECT_FALSE(semaphore.wait(milliseconds(1)));

    std::atomic<bool> released{false};
    kx_semaphore waiting;
    std::thread releaser([&] {
        waiting.wait(milliseconds(0));
        released = true;
        semaphore.release();
    });
    waiting.release();
    EXPECT_TRUE(semaphore.wait(milliseconds(0)));
    EXPECT_TRUE(released);
    releaser.join();
}

TEST(Threads, AreRecordedBeforeTheirCreatorGoesOnAndRemovedAtTheirEnd) {
    kx_thread_id id = 0;
    kx_semaphore go;
    std::atomic<kx_thread_id> inside{0};
    const auto before = kx_running_threads();
    kx_thread_handle thread = kx_thread_create(
        [&] {
            inside = kx_current_thread_id();
            go.wait(milliseconds(0));
        },
        kStack);
    ASSERT_TRUE(thread);
    ASSERT_EQ(kx_running_threads().size(), before.size() + 1);
    id = kx_running_threads().front();
    EXPECT_FALSE(thread.is_current());
    go.release();
    thread.join();
    EXPECT_FALSE(thread);
    EXPECT_EQ(inside, id);
    EXPECT_FALSE(runs(id));
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

TEST(Timer, TellsMillisecondsBetweenTwoMoments) {
    ManualClock clock;
    const kx_timer first = kx_timer::now(clock);
    clock.advance(std::chrono::seconds(1));
    const kx_timer second = kx_timer::now(clock);
    EXPECT_EQ(second.since(first), 1000);
    EXPECT_EQ(first.since(second), -1000);
    // Past the point where the value wraps around.
    clock.advance(std::chrono::hours(24 * 24));
    const kx_timer before = kx_timer::now(clock);
    clock.advance(std::chrono::hours(24));
    EXPECT_EQ(kx_timer::now(clock).since(before), 24 * 60 * 60 * 1000);
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
