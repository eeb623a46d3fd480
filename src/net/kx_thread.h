#pragma once
// A thread that repeats one step until it is stopped.
//
//     start ─► running ── run_once, run_once, ... ──► stopped ─► on_finished, if it ended by itself
//                 └─ stop: stopping, wake ───────────────┘
//
// What leaves run_once ends the process; a step that can go on catches it itself.
//
// Ownership   The object outlives its thread: the destructor of every derived class calls `stop`
//             first, while its own run_once and wake are still there.
// Threads     `start`, `stop` and the questions may be asked from any thread.

#include <atomic>
#include <chrono>
#include <cstdint>

#include "base/Annotations.h"
#include "base/kx_critical_section.h"
#include "base/kx_thread_registry.h"

namespace vorrim {

class kx_thread {
public:
    enum class State : std::uint8_t { running = 0, stopping = 1, stopped = 2 };

    kx_thread() = default;
    virtual ~kx_thread();
    kx_thread(const kx_thread&) = delete;
    kx_thread& operator=(const kx_thread&) = delete;

    // Does nothing unless the thread is stopped. When the system refuses a thread the object stays
    // stopped.
    virtual void start();
    // Called on the thread when it ends without having been stopped.
    virtual void on_finished() {}
    // The step. It may wait, as long as `wake` ends the wait.
    virtual void run_once() = 0;

    // Asks the thread to end after its step, wakes it, and waits until it has. Returns at once when
    // there is none. From the thread's own step it asks and does not wait.
    void stop();

    [[nodiscard]] State state() const noexcept { return state_.load(); }
    [[nodiscard]] bool stop_requested() const noexcept { return stop_requested_.load(); }

protected:
    // For the step: no further one after this.
    void finish() noexcept;
    // For a step that only lets time pass: waits, and returns early with true when a stop is asked
    // for.
    bool pause(std::chrono::nanoseconds length) EXCLUDES(lock_);

private:
    static constexpr std::size_t kStackBytes = 0xC800;

    // Ends a wait of run_once. It may come before the wait begins, which must then end too.
    virtual void wake() {}

    void body();

    kx_critical_section lock_;
    kx_condition changed_;
    kx_thread_handle thread_ GUARDED_BY(lock_);
    // Changed under the lock only, so that a waiting thread misses no change.
    std::atomic<State> state_{State::stopped};
    std::atomic<bool> stop_requested_{false};
};

}  // namespace vorrim
