#pragma once
// Chance, as the server asks for it: a small fast generator whose whole future follows from its
// seed, so that a run of chance can be repeated. Not for secrets that outputs of the same generator
// would betray.
//
// Threads: none inside; each owner has its own.

#include <array>
#include <cstdint>
#include <limits>

namespace vorrim {

// Also a uniform random bit generator, for std::shuffle and the distributions.
class Random final {
public:
    using result_type = std::uint64_t;

    explicit Random(std::uint64_t seed) noexcept;
    // Seeded with 256 bits from the operating system, which it waits for. Raises kx_err when the
    // system has none to give.
    [[nodiscard]] static Random from_system();

    [[nodiscard]] std::uint64_t next_u64() noexcept;
    // Uniform over 0 .. n - 1. Of 0 it is 0.
    [[nodiscard]] std::uint64_t below(std::uint64_t n) noexcept;

    result_type operator()() noexcept { return next_u64(); }
    static constexpr result_type min() noexcept { return 0; }
    static constexpr result_type max() noexcept { return std::numeric_limits<result_type>::max(); }

private:
    Random() = default;

    std::array<std::uint64_t, 4> state_{};
};

}  // namespace vorrim
