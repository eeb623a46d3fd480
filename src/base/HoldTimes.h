#pragma once
// How long a lock is held, counted for whoever measures: a histogram by powers of two, printed to
// standard error when the lock goes. Only in builds with VORRIM_LOCK_TIMES; in all others neither
// the clock is read nor anything kept.
//
// Threads     Any.

#include <array>
#include <atomic>
#include <bit>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace vorrim {

#ifdef VORRIM_LOCK_TIMES

class HoldTimes final {
public:
    using Moment = std::chrono::steady_clock::time_point;

    // What the lock guards and what it is held for, for the printed line.
    HoldTimes(const char* guarded, const char* purpose) noexcept
        : guarded_(guarded), purpose_(purpose) {}
    ~HoldTimes() { print(); }
    HoldTimes(const HoldTimes&) = delete;
    HoldTimes& operator=(const HoldTimes&) = delete;

    [[nodiscard]] static Moment now() noexcept { return std::chrono::steady_clock::now(); }
    void held_since(Moment begin) noexcept {
        const auto nanoseconds = static_cast<std::uint64_t>((now() - begin).count());
        counts_[static_cast<std::size_t>(std::bit_width(nanoseconds))].fetch_add(
            1, std::memory_order_relaxed);
    }

private:
    // The upper edge of the bucket that this share of all does not exceed.
    [[nodiscard]] double microseconds(double share, std::uint64_t total) const noexcept {
        std::uint64_t seen = 0;
        std::size_t bucket = 0;
        for (; bucket + 1 < counts_.size(); ++bucket) {
            seen += counts_[bucket];
            if (static_cast<double>(seen) >= share * static_cast<double>(total)) break;
        }
        return static_cast<double>(std::uint64_t{1} << bucket) / 1000;
    }
    void print() const noexcept {
        std::uint64_t total = 0;
        for (const auto& count : counts_)
            total += count;
        if (total == 0) return;
        std::fprintf(stderr,
                     "%s, held for %s %llu times: half below %.3g us, 99 of 100 below %.3g us, "
                     "999 of 1000 below %.3g us, all below %.3g us\n",
                     guarded_, purpose_, static_cast<unsigned long long>(total),
                     microseconds(0.5, total), microseconds(0.99, total),
                     microseconds(0.999, total), microseconds(1, total));
    }

    const char* const guarded_;
    const char* const purpose_;
    std::array<std::atomic<std::uint64_t>, 64> counts_{};
};

#else

class HoldTimes final {
public:
    struct Moment {};

    HoldTimes(const char* /*guarded*/, const char* /*purpose*/) noexcept {}
    [[nodiscard]] static Moment now() noexcept { return {}; }
    void held_since(Moment /*begin*/) noexcept {}
};

#endif

}  // namespace vorrim
