#pragma once
// Who is ready: the readiness set that a worker waits on.
//
// The set is edge-triggered. It reports a socket once when it becomes readable or writable, and the
// owner then moves bytes until the socket has no more to give (or gave less than was asked). What
// the set hands back is the owner that was registered with the socket, so nothing is searched for.
//
// Threads: `wait`, `add`, `want_writable` and `remove` belong to the worker that owns the set;
// `wake` may be called from any thread and makes the current or the next `wait` return.

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>

namespace vorrim {

class Task;

// Readiness flags, combinable.
enum Readiness : std::uint32_t {
    kReadable = 1,   // bytes, or for a listener a connection, or the peer's end
    kWritable = 2,   // room in the send buffer, or a connect that has come to an end
    kException = 4,  // the socket failed
    kPeerEnded = 8,  // with kReadable: the peer sends no more after what is waiting
};

struct ReadyTask {
    Task* task;
    std::uint32_t flags;
};

class kx_socket_set {
public:
    virtual ~kx_socket_set() = default;

    // Starts watching `handle` for `flags` on behalf of `task`. False when the system refuses.
    [[nodiscard]] virtual bool add(int handle, std::uint32_t flags, Task& task) = 0;
    // Asks to be told, once more, when `handle` can be written: after a write that would block.
    virtual void want_writable(int handle, Task& task) = 0;
    // Ends the watching of a handle that is closed right after.
    virtual void remove(int handle) = 0;

    // Waits until something is ready, somebody wakes the set, or the time is over (none = no
    // limit; less than nothing = do not wait). The span is valid until the next call.
    [[nodiscard]] virtual std::span<const ReadyTask> wait(
        std::optional<std::chrono::nanoseconds> limit) = 0;
    virtual void wake() noexcept = 0;
};

}  // namespace vorrim
