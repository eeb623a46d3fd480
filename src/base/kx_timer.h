#pragma once
// A moment, in milliseconds since the program was loaded, and two ways to let time pass.
//
// Threads: any.

#include <chrono>
#include <cstdint>

#include "base/Clock.h"

namespace vorrim {

// Wraps around after 24 days; differences below that stay right.
class kx_timer final {
public:
    kx_timer() noexcept = default;  // the moment of loading
    [[nodiscard]] static kx_timer now(const Clock& clock = system_clock()) noexcept;

    // Milliseconds from the earlier timer to this one.
    [[nodiscard]] std::int32_t since(const kx_timer& earlier) const noexcept;

private:
    std::int32_t milliseconds_ = 0;
};

void kx_sleep(std::chrono::seconds length);
void kx_sleep_ms(std::chrono::milliseconds length);

}  // namespace vorrim
