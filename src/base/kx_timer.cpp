#include "base/kx_timer.h"

#include <thread>

namespace vorrim {

namespace {
const std::chrono::steady_clock::time_point loaded = std::chrono::steady_clock::now();
}

kx_timer kx_timer::now(const Clock& clock) noexcept {
    kx_timer timer;
    timer.milliseconds_ = static_cast<std::int32_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(clock.now() - loaded).count());
    return timer;
}

std::int32_t kx_timer::since(const kx_timer& earlier) const noexcept {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(milliseconds_) -
                                     static_cast<std::uint32_t>(earlier.milliseconds_));
}

void kx_sleep(std::chrono::seconds length) {
    std::this_thread::sleep_for(length);
}

void kx_sleep_ms(std::chrono::milliseconds length) {
    std::this_thread::sleep_for(length);
}

}  // namespace vorrim
