#pragma once
// A lock that one thread holds at a time, the scope that holds it, and the condition to wait for
// under it.
//
// Not recursive: a thread that enters twice waits for itself. The analysis of Clang finds that at
// compile time where the fields are annotated.

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "base/Annotations.h"

namespace vorrim {

class CAPABILITY("mutex") kx_critical_section final {
public:
    kx_critical_section() = default;
    kx_critical_section(const kx_critical_section&) = delete;
    kx_critical_section& operator=(const kx_critical_section&) = delete;

    void enter() ACQUIRE() { mutex_.lock(); }
    void leave() noexcept RELEASE() { mutex_.unlock(); }
    // True when the lock was free and is now held by the caller.
    [[nodiscard]] bool try_enter() noexcept TRY_ACQUIRE(true) { return mutex_.try_lock(); }

private:
    friend class kx_condition;
    std::mutex mutex_;
};

// Holds a section from its construction to the end of the block, however the block is left.
class [[nodiscard]] SCOPED_CAPABILITY kx_guard final {
public:
    explicit kx_guard(kx_critical_section& section) ACQUIRE(section) : section_(section) {
        section_.enter();
    }
    ~kx_guard() RELEASE() { section_.leave(); }
    kx_guard(const kx_guard&) = delete;
    kx_guard& operator=(const kx_guard&) = delete;

private:
    kx_critical_section& section_;
};

// Something that becomes true under a section. A wait may return early without a reason, so the
// caller tests in a loop what it waits for.
class kx_condition final {
public:
    kx_condition() = default;
    kx_condition(const kx_condition&) = delete;
    kx_condition& operator=(const kx_condition&) = delete;

    // Leaves the section while waiting and holds it again on return.
    void wait(kx_critical_section& section) REQUIRES(section) {
        std::unique_lock<std::mutex> held(section.mutex_, std::adopt_lock);
        condition_.wait(held);
        held.release();
    }
    // The same up to a moment; false when the moment has come.
    bool wait_until(kx_critical_section& section, std::chrono::steady_clock::time_point moment)
        REQUIRES(section) {
        std::unique_lock<std::mutex> held(section.mutex_, std::adopt_lock);
        const std::cv_status status = condition_.wait_until(held, moment);
        held.release();
        return status == std::cv_status::no_timeout;
    }

    void notify_one() noexcept { condition_.notify_one(); }
    void notify_all() noexcept { condition_.notify_all(); }

private:
    std::condition_variable condition_;
};

}  // namespace vorrim
