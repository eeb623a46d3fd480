#pragma once
// Anything the pool runs: a connection, a door, a reachability test.
//
// A task belongs to one PoolShare, and so to one worker, for life. Only that worker calls doTask
// and onDeadline and only it destroys the task; therefore a task's state needs no lock against
// itself. Other threads reach a task through the few operations marked "any thread", and only while
// they hold the lock of a table that the task leaves in its destructor.

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "net/kx_net_socket.h"
#include "net/kx_socket_set.h"

namespace vorrim {

class PoolShare;
class socketPool;

// What a task wants after its turn.
enum class Turn {
    wait,        // nothing to do until something becomes ready
    again,       // there is more to do; let the others have their turn first
    at_leisure,  // the same, and much has been done: those who ask for little may go first
    finished,    // destroy me
};

class Task {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    // The socket may be null for a task that lives on its deadline alone.
    Task(std::unique_ptr<kx_net_socket> socket, socketPool& pool);
    virtual ~Task();
    Task(const Task&) = delete;
    Task& operator=(const Task&) = delete;

    // One turn, on the task's own worker.
    [[nodiscard]] virtual Turn doTask(socketPool& pool) = 0;
    // What is left to do before a finished task may be destroyed, one bounded step a turn; true
    // when it is done. The socket is closed by then. A destructor that comes first (shut-down) must
    // do what is left itself.
    [[nodiscard]] virtual bool farewell() { return true; }
    // The deadline set with setDeadline has passed.
    [[nodiscard]] virtual Turn onDeadline() { return Turn::wait; }

    // Any thread: asks for the task's removal; its own worker destroys it on its next turn.
    void close();
    // Any thread: gives the task a turn, because something was left for it.
    void post();

protected:
    static constexpr TimePoint kNoDeadline = TimePoint::max();

    [[nodiscard]] socketPool& pool() const noexcept { return pool_; }
    [[nodiscard]] PoolShare* share() const noexcept { return share_.load(); }
    [[nodiscard]] kx_net_socket* socket() const noexcept { return socket_.get(); }
    [[nodiscard]] bool closing() const noexcept { return closing_.load(); }
    // Before the task is given to the pool, or before startWatching.
    void setSocket(std::unique_ptr<kx_net_socket> socket) noexcept { socket_ = std::move(socket); }

    // Own worker only.
    void setDeadline(TimePoint deadline);
    [[nodiscard]] TimePoint deadline() const noexcept { return deadline_; }
    void wantWritable();
    // For a task that has got its socket late. False when the system refuses.
    [[nodiscard]] bool startWatching();

    // What the readiness set reported and nobody has used up yet; own worker only.
    std::uint32_t flags_ = 0;

private:
    friend class PoolShare;

    // What a new task's readiness set watches at first.
    [[nodiscard]] virtual std::uint32_t interest() const noexcept { return kReadable; }

    socketPool& pool_;
    std::unique_ptr<kx_net_socket> socket_;
    std::atomic<PoolShare*> share_{nullptr};
    std::atomic<bool> closing_{false};
    std::atomic<bool> posted_{false};  // waits in the share's mailbox
    bool leaving_ = false;             // finished; its farewell takes more than one turn
    bool queued_ = false;              // waits on the share's ready list
    std::uint32_t slot_ = 0;           // place among the share's tasks
    TimePoint deadline_ = kNoDeadline;
};

}  // namespace vorrim
