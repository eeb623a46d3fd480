#pragma once
// Where the main thread waits: for a signal to the process, and meanwhile for the operator or for
// another thread.
//
//     SIGINT, SIGTERM ──► signalfd ──┐
//     SIGHUP ───────────► signalfd ──┼──► the hang-up's handler, and the wait goes on
//     wake(), any thread ► eventfd ──┼──► the wait returns
//     the operator ─────► descriptor ┘
//
// Make it on the main thread, before any other thread: from then on the signals reach nobody but
// this object. The first of SIGINT and SIGTERM asks for a stop in order, and every wait returns at
// once from then on; a second one ends the process on the spot.
//
// SIGHUP asks a daemon to look at its files again, but it also comes when a terminal is gone: a
// program that was started on one takes it as a stop then. Where it was ignored from the start
// (nohup), it stays ignored.

#include <functional>
#include <utility>

namespace vorrim {

class StopSignal final {
public:
    enum class Event { signalled, woken, readable };

    static constexpr int kNoTerminal = -1;

    // `terminal` is what the program was started on, if that is a terminal. Raises kx_err when the
    // system has no descriptor left.
    explicit StopSignal(int terminal = kNoTerminal);
    ~StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    // What SIGHUP asks for; called within the waits, and must not raise.
    void onHangUp(std::function<void()> handler) { hang_up_ = std::move(handler); }

    // `signalled`, or `woken` by a wake since the last such wait. Main thread.
    [[nodiscard]] Event wait();
    // `signalled`, or `readable` when reading the descriptor would not wait, if only because it is
    // closed. Main thread.
    [[nodiscard]] Event waitReadable(int descriptor);
    // The same, or `woken` by a wake since the last wait that counts them.
    [[nodiscard]] Event waitReadableOrWoken(int descriptor);
    // Whether a stop has been asked for; does not wait. Main thread.
    [[nodiscard]] bool signalled();
    // There will be no further wait, since the process stops anyway: the next signal that asks for
    // a stop changes nothing, and the one after it ends the process. Main thread.
    void endWaits();
    // Any thread.
    void wake() noexcept;

private:
    // Passed over by a wait.
    static constexpr int kNoDescriptor = -1;

    // Waits for a signal, for what the other descriptors have, or not at all (0 ms): says which of
    // them is ready.
    enum class Ready { none, descriptor, waker };
    Ready poll_with(int descriptor, int waker, int timeout_ms);
    Event wait_for(int descriptor, int waker);
    void receive(unsigned number);

    const int terminal_;
    int signal_ = -1;
    int woken_ = -1;
    bool signalled_ = false;
    std::function<void()> hang_up_ = [] {};
};

}  // namespace vorrim
