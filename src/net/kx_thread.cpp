#include "net/kx_thread.h"

#include <utility>

namespace vorrim {

kx_thread::~kx_thread() {
    stop();
}

void kx_thread::start() {
    kx_thread_handle ended;
    {
        const kx_guard hold(lock_);
        if (state_ != State::stopped) return;
        // A thread that has ended by itself may still be in on_finished; this call may be from
        // there.
        if (thread_.is_current()) {
            thread_.detach();
        } else {
            ended = std::move(thread_);
        }
    }
    ended.join();

    const kx_guard hold(lock_);
    if (state_ != State::stopped || thread_) return;
    state_ = State::running;
    stop_requested_ = false;
    // The new thread waits in its body for this lock, so that it finds its handle in place.
    thread_ = kx_thread_create([this] { body(); }, kStackBytes);
    if (!thread_) state_ = State::stopped;
}

void kx_thread::stop() {
    kx_thread_handle thread;
    {
        const kx_guard hold(lock_);
        if (state_ == State::running) {
            stop_requested_ = true;
            state_ = State::stopping;
            changed_.notify_all();
        }
        if (thread_.is_current()) return;
        thread = std::move(thread_);
    }
    if (thread) {
        wake();
        thread.join();
        return;
    }
    // Another thread stops it already.
    const kx_guard hold(lock_);
    while (state_ != State::stopped)
        changed_.wait(lock_);
}

void kx_thread::finish() noexcept {
    const kx_guard hold(lock_);
    if (state_ == State::running) state_ = State::stopping;
}

bool kx_thread::pause(std::chrono::nanoseconds length) {
    const auto end = std::chrono::steady_clock::now() + length;
    const kx_guard hold(lock_);
    while (state_ == State::running && changed_.wait_until(lock_, end)) {
    }
    return state_ != State::running;
}

void kx_thread::body() {
    { const kx_guard created(lock_); }
    while (state_ == State::running)
        run_once();
    {
        const kx_guard hold(lock_);
        state_ = State::stopped;
        changed_.notify_all();
    }
    if (!stop_requested_) on_finished();
}

}  // namespace vorrim
