#pragma once
// The running flag: set when it is made, cleared once, and somebody waits for that.
//
//     SIGINT, SIGTERM, SIGHUP ──► signalfd ──┐
//     clear(), any thread ──────► eventfd ───┴──► wait() returns
//
// Make it on the main thread, before any other thread: from then on and to the end of the process
// the signals reach nobody but `wait`, so that a second one does not cut the shut-down short.

#include <atomic>

namespace vorrim {

class StopSignal final {
public:
    StopSignal();  // raises kx_err when the system has no descriptor left
    ~StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    // Any thread. There is no way back.
    void clear() noexcept;
    [[nodiscard]] bool running() const noexcept { return running_.load(); }
    // Returns once the flag is clear. Main thread.
    void wait();

private:
    int signal_ = -1;
    int cleared_ = -1;
    std::atomic<bool> running_{true};
};

}  // namespace vorrim
