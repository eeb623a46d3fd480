#pragma once
// Time, as the server asks for it: one clock for durations and deadlines, one for the date.
// Whoever needs time takes a `const Clock&`, so that a test can hand it a clock that it moves
// itself.
//
// Threads: every clock here may be asked, and the manual one moved, from any thread.

#include <atomic>
#include <chrono>
#include <cstdint>

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

// Stands still until it is moved. Both times start an hour after their epochs, so that a test may
// subtract from them.
class ManualClock final : public Clock {
public:
    [[nodiscard]] std::chrono::steady_clock::time_point now() const noexcept override;
    [[nodiscard]] std::chrono::system_clock::time_point wall_now() const noexcept override;

    void advance(std::chrono::nanoseconds step) noexcept;

private:
    std::atomic<std::int64_t> nanoseconds_{std::chrono::nanoseconds(std::chrono::hours(1)).count()};
};

}  // namespace vorrim
