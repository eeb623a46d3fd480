#pragma once
// How fast one connection may ask for what costs the server something: a token bucket for each kind
// of request, refilled by the minute, holding a minute's worth.
//
// A request within its bucket costs one decrement; the clock is only looked at when the bucket is
// empty. A full bucket is not topped up until it has run dry, so that after a quiet time somebody
// may get up to two minutes' worth at once.
//
// Threads: those of its connection.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace vorrim {

enum class Request : std::uint8_t { login, offer, search, text, callback };
inline constexpr std::size_t kRequests = static_cast<std::size_t>(Request::callback) + 1;

// Requests a minute, for each kind; 0: no limit.
using RequestRates = std::array<std::uint16_t, kRequests>;

class RequestBuckets final {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    void fill(const RequestRates& rates, TimePoint now) noexcept {
        tokens_ = rates;
        filled_.fill(milliseconds(now));
    }

    // Takes a token for a request. The result is how long to read nothing more; most often not at
    // all. `now` is called only when the bucket is empty.
    template <class Now>
    [[nodiscard]] std::chrono::milliseconds spend(Request kind, const RequestRates& rates,
                                                  Now&& now) noexcept {
        const auto i = static_cast<std::size_t>(kind);
        if (tokens_[i] > 0) {
            --tokens_[i];
            return {};
        }
        return rates[i] == 0 ? std::chrono::milliseconds{} : refill(i, rates[i], now());
    }

private:
    static constexpr std::uint32_t kMinute = 60'000;  // ms

    // Wraps after seven weeks; a bucket that looks less full for it costs a pause too many.
    static std::uint32_t milliseconds(TimePoint now) noexcept {
        return static_cast<std::uint32_t>(
            std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count());
    }

    std::chrono::milliseconds refill(std::size_t i, std::uint16_t rate, TimePoint time) noexcept {
        const std::uint32_t now = milliseconds(time);
        const std::uint32_t ahead = filled_[i] - now;  // of time, when tokens to come were taken
        const std::uint32_t passed = ahead <= kMinute ? 0 : now - filled_[i];
        const std::uint32_t interval = std::max(kMinute / rate, 1U);
        if (passed < interval) {
            // The request takes the token that is still to come.
            filled_[i] += interval;
            return std::chrono::milliseconds(filled_[i] - now);
        }
        const std::uint64_t earned = std::uint64_t{passed} * rate / kMinute;
        tokens_[i] = static_cast<std::uint16_t>(std::clamp<std::uint64_t>(earned, 1, rate) - 1);
        filled_[i] = now;
        return {};
    }

    std::array<std::uint32_t, kRequests> filled_{};
    RequestRates tokens_{};
};

}  // namespace vorrim
