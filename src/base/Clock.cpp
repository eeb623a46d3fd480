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

}  // namespace vorrim
