#include "base/kx_semaphore.h"

namespace vorrim {

bool kx_semaphore::wait(std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    const kx_guard hold(lock_);
    while (count_ == 0) {
        if (limit.count() == 0) {
            released_.wait(lock_);
        } else if (!released_.wait_until(lock_, end) && count_ == 0) {
            return false;
        }
    }
    --count_;
    return true;
}

void kx_semaphore::release() {
    const kx_guard hold(lock_);
    if (count_ < kMaximum) ++count_;
    // Under the lock: once a waiter can return, this semaphore may be gone.
    released_.notify_one();
}

}  // namespace vorrim
