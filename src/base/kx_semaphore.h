#pragma once
// Counts what has been released and not yet waited for. Starts at 0.
//
// Threads: any. A thread may destroy the semaphore as soon as its own wait has returned.

#include <chrono>
#include <cstdint>

#include "base/Annotations.h"
#include "base/kx_critical_section.h"

namespace vorrim {

class kx_semaphore final {
public:
    // Releases past this are lost.
    static constexpr std::int32_t kMaximum = 0x7FFFFFFF;

    kx_semaphore() = default;

    // Takes one; false only when the time has passed. 0 means no limit.
    bool wait(std::chrono::milliseconds limit) EXCLUDES(lock_);
    void release() EXCLUDES(lock_);

private:
    kx_critical_section lock_;
    kx_condition released_;
    std::int32_t count_ GUARDED_BY(lock_) = 0;
};

}  // namespace vorrim
