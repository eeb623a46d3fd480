#pragma once
// A clock that stands still until a test moves it, from any thread. Both times start an hour after
// their epochs, so that a test may subtract from them.

#include <atomic>
#include <chrono>
#include <cstdint>

#include "base/Clock.h"

namespace vorrim {

class ManualClock final : public Clock {
public:
    [[nodiscard]] std::chrono::steady_clock::time_point now() const noexcept override {
        return std::chrono::steady_clock::time_point(passed());
    }
    [[nodiscard]] std::chrono::system_clock::time_point wall_now() const noexcept override {
        return std::chrono::system_clock::time_point(
            std::chrono::duration_cast<std::chrono::system_clock::duration>(passed()));
    }

    void advance(std::chrono::nanoseconds step) noexcept { nanoseconds_.fetch_add(step.count()); }

private:
    [[nodiscard]] std::chrono::nanoseconds passed() const noexcept {
        return std::chrono::nanoseconds(nanoseconds_.load());
    }

    std::atomic<std::int64_t> nanoseconds_{std::chrono::nanoseconds(std::chrono::hours(1)).count()};
};

}  // namespace vorrim
