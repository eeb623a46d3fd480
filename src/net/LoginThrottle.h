#pragma once
// Slows down whoever guesses the administrator's password.
//
// Five failed logins from one address within a minute are forgiven. Every further login from there
// waits before it is even looked at: one second, then two, four and so on up to a minute, each
// behind the one before it, on however many connections they come. What would have to wait longer
// than five minutes is refused unseen. An address starts afresh after a login with the right
// password, or when it has left the server alone for ten minutes.
//
// The table is bounded: when it is full, the address that was seen longest ago makes room.
//
// Threads: any thread.

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <unordered_map>

#include "base/Annotations.h"
#include "base/Clock.h"
#include "base/kx_critical_section.h"

namespace vorrim {

class LoginThrottle final {
public:
    static constexpr unsigned kFreeFailures = 5;
    static constexpr std::chrono::seconds kWindow{60};
    static constexpr std::chrono::seconds kFirstDelay{1};
    static constexpr std::chrono::seconds kLongestDelay{60};
    static constexpr std::chrono::seconds kLongestWait{300};
    static constexpr std::chrono::seconds kForgiveness{600};
    static constexpr std::size_t kMaxAddresses = 4096;

    // The clock must outlive the throttle.
    explicit LoginThrottle(const Clock& clock) : clock_(clock) {}
    LoginThrottle(const LoginThrottle&) = delete;
    LoginThrottle& operator=(const LoginThrottle&) = delete;

    // A login from `address` has come: when to look at it, which may be now; nothing when it is to
    // be refused. Addresses are in identifier form.
    [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> admit(std::uint32_t address);
    // A login from `address` was looked at: its name or password was wrong.
    void failed(std::uint32_t address);
    // They were right, whether it got in or not.
    void succeeded(std::uint32_t address);

    // Logins that had to wait or were refused, since the start.
    [[nodiscard]] std::uint64_t slowed() const;

private:
    using TimePoint = std::chrono::steady_clock::time_point;

    struct Offender {
        std::array<TimePoint, kFreeFailures> failures{};  // the latest ones, in a ring
        unsigned failure_count = 0;
        TimePoint last_seen{};  // the latest login, or the moment of the last one that waits
        bool slowed = false;
        std::chrono::seconds delay{0};  // of the latest login that had to wait
    };
    using Offenders = std::unordered_map<std::uint32_t, Offender>;

    [[nodiscard]] Offender& offender(std::uint32_t address, TimePoint now) REQUIRES(lock_);
    [[nodiscard]] unsigned count_slowed(TimePoint now) REQUIRES(lock_);

    const Clock& clock_;
    mutable kx_critical_section lock_;
    Offenders offenders_ GUARDED_BY(lock_);
    std::uint64_t slowed_ GUARDED_BY(lock_) = 0;
    std::uint64_t reported_ GUARDED_BY(lock_) = 0;  // of them, those a message has told of
    std::optional<TimePoint> report_time_ GUARDED_BY(lock_);
};

}  // namespace vorrim
