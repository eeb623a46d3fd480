#include <atomic>
#include <functional>
#include <gtest/gtest.h>

#include "base/kx_critical_section.h"
#include "base/kx_err.h"
#include "base/kx_semaphore.h"
#include "net/kx_thread.h"

namespace vorrim {
namespace {

using std::chrono::milliseconds;

// Does what it is told, in each step.
class Scripted final : public kx_thread {
public:
    explicit Scripted(std::function<void(Scripted&)> step) : step_(std::move(step)) {}
    ~Scripted() override { stop(); }
    void run_once() override { step_(*this); }
    void on_finished() override {
        if (when_finished) when_finished(*this);
        finished.release();
    }
    using kx_thread::finish;
    using kx_thread::pause;

    std::function<void(Scripted&)> when_finished;
    kx_semaphore finished;
    kx_semaphore woken;

private:
    void wake() override { woken.release(); }

    std::function<void(Scripted&)> step_;
};

TEST(KxThread, IsWaitedForByEveryoneWhoStopsIt) {
    for (int round = 0; round < 50; ++round) {
        // As a worker waits for sockets: until somebody wakes it.
        Scripted thread([](Scripted& self) { self.woken.wait(milliseconds(0)); });
        thread.start();
        kx_thread_handle other = kx_thread_create(
            [&thread] {
                thread.stop();
                EXPECT_EQ(thread.state(), kx_thread::State::stopped);
            },
            0);
        thread.stop();
        EXPECT_EQ(thread.state(), kx_thread::State::stopped);
        other.join();
    }
}

TEST(KxThread, SaysSoWhenItEndsByItselfAndMayStartItselfAgain) {
    std::atomic<int> steps{0};
    Scripted thread([&steps](Scripted& self) {
        if (++steps % 3 == 0) self.finish();
    });
    thread.when_finished = [&steps](Scripted& self) {
        if (steps == 6) self.start();
    };
    thread.start();
    thread.finished.wait(milliseconds(0));
    EXPECT_EQ(steps, 3);
    thread.start();
    thread.finished.wait(milliseconds(0));
    thread.finished.wait(milliseconds(0));
    EXPECT_EQ(steps, 9);
}

TEST(KxThread, IsStoppedOutOfALongPause) {
    kx_semaphore pausing;
    std::atomic<bool> cut_short{false};
    Scripted thread([&](Scripted& self) {
        EXPECT_FALSE(self.pause(milliseconds(1)));
        pausing.release();
        cut_short = self.pause(std::chrono::hours(24));
    });
    thread.start();
    pausing.wait(milliseconds(0));
    thread.stop();
    EXPECT_TRUE(cut_short);
}

}  // namespace
}  // namespace vorrim
