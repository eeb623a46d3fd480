#pragma once
// Creating threads, and the process-wide list of those that run.
//
// Threads: everything here may be called from any thread. The registry's lock is held only while a
// record is added, removed or counted.

#include <cstddef>
#include <functional>
#include <pthread.h>
#include <sys/types.h>
#include <vector>

namespace vorrim {

// The system's number of a thread, as its tools show it.
using kx_thread_id = pid_t;
[[nodiscard]] kx_thread_id kx_current_thread_id() noexcept;

// The right to wait for the end of a thread, or nothing. Destroying it lets the thread go on alone.
class kx_thread_handle final {
public:
    kx_thread_handle() noexcept = default;
    ~kx_thread_handle() { detach(); }
    kx_thread_handle(kx_thread_handle&& other) noexcept;
    kx_thread_handle& operator=(kx_thread_handle&& other) noexcept;
    kx_thread_handle(const kx_thread_handle&) = delete;
    kx_thread_handle& operator=(const kx_thread_handle&) = delete;

    [[nodiscard]] explicit operator bool() const noexcept { return valid_; }
    [[nodiscard]] bool is_current() const noexcept;
    // Waits until the thread has ended; the handle is empty then. At once for an empty handle.
    void join() noexcept;
    void detach() noexcept;

private:
    friend kx_thread_handle kx_thread_create(std::function<void()>, std::size_t);

    pthread_t thread_{};
    bool valid_ = false;
};

// Runs `function` on a new thread with a stack of at least `stack_bytes`. Returns when the thread
// has recorded itself and is about to call it; empty when the system refuses a thread.
//
// kx_exit_thread_exception ends the thread silently, a kx_err or std::bad_alloc the process.
[[nodiscard]] kx_thread_handle kx_thread_create(std::function<void()> function,
                                                std::size_t stack_bytes);

// The threads that run: those made here, and the main thread between kx_init and kx_uninit. The
// latest comes first.
[[nodiscard]] std::vector<kx_thread_id> kx_running_threads();

}  // namespace vorrim
