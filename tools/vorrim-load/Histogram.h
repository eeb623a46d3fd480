#pragma once
// Latencies in nanoseconds, counted in buckets that are never wider than a sixty-fourth of their
// value (the log-linear buckets of HdrHistogram). No allocation after construction.

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace vorrim::load {

class Histogram final {
public:
    void record(std::uint64_t nanoseconds) noexcept {
        ++counts_[bucket_of(nanoseconds)];
        ++total_;
        if (nanoseconds > max_) max_ = nanoseconds;
    }

    [[nodiscard]] std::uint64_t total() const noexcept { return total_; }
    [[nodiscard]] std::uint64_t max() const noexcept { return max_; }

    // The latency that this share (0 to 1) of all does not exceed.
    [[nodiscard]] std::uint64_t percentile(double share) const noexcept {
        const auto wanted = static_cast<std::uint64_t>(share * static_cast<double>(total_));
        std::uint64_t seen = 0;
        for (std::size_t i = 0; i < counts_.size(); ++i) {
            seen += counts_[i];
            if (seen > wanted) return std::min(upper_edge(i), max_);
        }
        return max_;
    }

private:
    static constexpr unsigned kSubBits = 6;
    static constexpr std::uint64_t kSub = 1U << kSubBits;

    [[nodiscard]] static std::size_t bucket_of(std::uint64_t value) noexcept {
        if (value < kSub) return static_cast<std::size_t>(value);
        const unsigned shift = static_cast<unsigned>(std::bit_width(value)) - kSubBits - 1;
        return static_cast<std::size_t>((std::uint64_t{shift} << kSubBits) + (value >> shift));
    }
    [[nodiscard]] static std::uint64_t upper_edge(std::size_t bucket) noexcept {
        if (bucket < 2 * kSub) return bucket;
        const std::uint64_t shift = (bucket >> kSubBits) - 1;
        return ((bucket - (shift << kSubBits)) << shift) + (std::uint64_t{1} << shift) - 1;
    }

    std::array<std::uint64_t, 60 * kSub> counts_{};
    std::uint64_t total_ = 0;
    std::uint64_t max_ = 0;
};

}  // namespace vorrim::load
