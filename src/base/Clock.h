#pragma once
// Time, as the server asks for it: one clock for durations and deadlines, one for the date.
// Whoever needs time takes a `const Clock&`, so that a test can hand it a clock that it moves
// itself.
//
// Threads: a clock may be asked from any thread.

#include <chrono>

namespace vorrim {

class Clock {
public:
    virtual ~Clock() = default;

    // Never goes back; says nothing about the date.
    [[nodiscard]] virtual std::chrono::steady_clock::time_point now() const noexcept = 0;
    // The date and the time of day; may jump when the system is set.
    [[nodiscard]] virtual std::chrono::system_clock::time_point wall_now() const noexcept = 0;

protected:
    Clock() = default;
    Clock(const Clock&) = default;
    Clock& operator=(const Clock&) = default;
};

class SystemClock final : public Clock {
public:
    [[nodiscard]] std::chrono::steady_clock::time_point now() const noexcept override;
    [[nodiscard]] std::chrono::system_clock::time_point wall_now() const noexcept override;
};

// The one system clock of the process.
[[nodiscard]] SystemClock& system_clock() noexcept;

}  // namespace vorrim
