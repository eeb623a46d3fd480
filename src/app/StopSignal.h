#pragma once
// Where the main thread waits: for a signal that ends the process, and meanwhile for the operator
// or for another thread.
//
//     SIGINT, SIGTERM, SIGHUP ──► signalfd ──┐
//     wake(), any thread ───────► eventfd ───┼──► the wait returns
//     the operator ─────────────► descriptor ┘
//
// Make it on the main thread, before any other thread: from then on and to the end of the process
// the signals reach nobody but this object, so that a second one does not cut the shut-down short.
// Once a signal has come, every wait returns at once.

namespace vorrim {

class StopSignal final {
public:
    enum class Event { signalled, woken, readable };

    StopSignal();  // raises kx_err when the system has no descriptor left
    ~StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    // `signalled`, or `woken` by a wake since the last such wait. Main thread.
    [[nodiscard]] Event wait();
    // `signalled`, or `readable` when reading the descriptor would not wait, if only because it is
    // closed. Main thread.
    [[nodiscard]] Event waitReadable(int descriptor);
    // Whether a signal has come; does not wait. Main thread.
    [[nodiscard]] bool signalled();
    // Any thread.
    void wake() noexcept;

private:
    // Waits for a signal, for what the other descriptor has, or not at all (0 ms); true when the
    // other descriptor is ready.
    bool poll_with(int descriptor, int timeout_ms);

    int signal_ = -1;
    int woken_ = -1;
    bool signalled_ = false;
};

}  // namespace vorrim
