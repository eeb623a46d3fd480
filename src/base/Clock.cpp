#include "base/Clock.h"

namespace vorrim {

std::chrono::steady_clock::time_point SystemClock::now() const noexcept {
    return std::chrono::steady_clock::now();
}

std::chrono::system_clock::time_point SystemClock::wall_now() const noexcept {
    return std::chrono::system_clock::now();
}

SystemClock& system_clock() noexcept {
    static SystemClock clock;
    return clock;
}

std::chrono::steady_clock::time_point ManualClock::now() const noexcept {
    return std::chrono::steady_clock::time_point(std::chrono::nanoseconds(nanoseconds_.load()));
}

std::chrono::system_clock::time_point ManualClock::wall_now() const noexcept {
    return std::chrono::system_clock::time_point(
        std::chrono::duration_cast<std::chrono::system_clock::duration>(
            std::chrono::nanoseconds(nanoseconds_.load())));
}

void ManualClock::advance(std::chrono::nanoseconds step) noexcept {
    nanoseconds_.fetch_add(step.count());
}

}  // namespace vorrim
