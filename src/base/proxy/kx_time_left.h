#pragma once
// How much is left of the time that a call was given.

#include <algorithm>
#include <chrono>
#include <cstdint>

#include "base/Clock.h"

namespace vorrim {

class kx_time_left final {
public:
    static constexpr int kNoLimit = -1;

    // Begins now. A timeout (ms) below 1 is no limit.
    kx_time_left(const Clock& clock, int timeout_ms) noexcept
        : clock_(clock), begin_(clock.now()), timeout_(timeout_ms) {}

    // In milliseconds, never below 0; kNoLimit where there is none.
    [[nodiscard]] int operator()() const noexcept {
        using std::chrono::milliseconds;
        if (timeout_ < 1) return kNoLimit;
        const auto spent = std::chrono::duration_cast<milliseconds>(clock_.now() - begin_).count();
        return static_cast<int>(std::max<std::int64_t>(timeout_ - spent, 0));
    }

private:
    const Clock& clock_;
    std::chrono::steady_clock::time_point begin_;
    int timeout_;
};

}  // namespace vorrim
