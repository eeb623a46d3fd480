#pragma once
// How often each limit has bitten, and the lines that say so.
//
//     any thread ── count(limit) ──►  one counter each  ──►  report, on a thread that has time
//
// Whoever runs into a limit only counts. A line per limit follows at the next report, and then at
// most one a minute while it goes on biting, so that a flood cannot become a flood of lines.
//
// Threads: `count` and `total` from any thread, under any lock; `report` from one at a time.

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace vorrim {

enum class Limit : std::uint8_t {
    packet_size,
    first_packet,
    packet_time,
    send_queue,
    send_stall,
    address_connections,
    address_connects,
    administrators,
    logins,
    offers,
    searches,
    texts,
    callbacks,
    flood,
    client_files,
    file_records,
    client_records,
    reach_waits,
    reach_refusals,
    datagram_bytes,
    datagram_status,
    known_servers,
};
inline constexpr std::size_t kLimits = static_cast<std::size_t>(Limit::known_servers) + 1;

class LimitLog final {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    static constexpr std::chrono::seconds kPause{60};  // between two lines about the same limit

    LimitLog() = default;
    LimitLog(const LimitLog&) = delete;
    LimitLog& operator=(const LimitLog&) = delete;

    void count(Limit limit, std::uint64_t times = 1) noexcept {
        counts_[index(limit)].fetch_add(times, std::memory_order_relaxed);
    }
    [[nodiscard]] std::uint64_t total(Limit limit) const noexcept {
        return counts_[index(limit)].load(std::memory_order_relaxed);
    }

    // Prints what has not been said yet and may be said now; without a time everything, because
    // nobody will ask again.
    void report(std::optional<TimePoint> now);

private:
    static constexpr std::size_t index(Limit limit) noexcept {
        return static_cast<std::size_t>(limit);
    }

    std::array<std::atomic<std::uint64_t>, kLimits> counts_{};
    struct Said {
        std::uint64_t count = 0;
        std::optional<TimePoint> when;
    };
    std::array<Said, kLimits> said_{};
};

}  // namespace vorrim
