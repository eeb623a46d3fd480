#pragma once
// Finding a row in an ascending array of rows that lies far away in memory.
//
// Rows of a list are spread evenly over the life of the index, near enough: where a row must be can
// be computed from the two ends. So a search touches three cache lines instead of one per halving,
// and they can be fetched in advance.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

namespace vorrim {

// Where a row should be among so many (at least one) that go from `first` to `last`.
[[nodiscard]] inline std::size_t guess_between(std::uint32_t first, std::uint32_t last,
                                               std::size_t count, std::uint32_t row) noexcept {
    if (row <= first) return 0;
    if (row >= last) return count - 1;
    return static_cast<std::size_t>(std::uint64_t{row - first} * (count - 1) / (last - first));
}

// Where the row should be; `rows` is not empty.
[[nodiscard]] inline std::size_t guess_of(std::span<const std::uint32_t> rows,
                                          std::uint32_t row) noexcept {
    return guess_between(rows.front(), rows.back(), rows.size(), row);
}

// How many of `count` indices are below, all of them before all others; looks near the guess first.
template <class Below>
[[nodiscard]] std::size_t gallop(std::size_t count, std::size_t guess, Below&& below) noexcept {
    std::size_t low = guess;
    std::size_t high = guess;
    std::size_t step = 4;
    if (below(guess)) {
        while (high < count && below(high)) {
            low = high + 1;
            high = std::min(count, high + step);
            step *= 2;
        }
    } else {
        while (low > 0 && !below(low - 1)) {
            high = low - 1;
            low = low > step ? low - step : 0;
            step *= 2;
        }
    }
    while (low < high) {
        const std::size_t middle = low + (high - low) / 2;
        if (below(middle))
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

// The index of the first row that is not lower than `row`: as std::lower_bound. Quick when it is
// near the guess, which is in the array.
[[nodiscard]] inline std::size_t find_row_near(std::span<const std::uint32_t> rows,
                                               std::uint32_t row, std::size_t guess) noexcept {
    return gallop(rows.size(), guess, [&](std::size_t index) { return rows[index] < row; });
}

[[nodiscard]] inline std::size_t find_row(std::span<const std::uint32_t> rows,
                                          std::uint32_t row) noexcept {
    return rows.empty() ? 0 : find_row_near(rows, row, guess_of(rows, row));
}

// Fetches what find_row will touch, once the ends are at hand.
inline void prefetch_row(std::span<const std::uint32_t> rows, std::uint32_t row) noexcept {
    constexpr std::size_t kLineRows = 16;
    const std::uint32_t* const at = rows.data() + guess_of(rows, row);
    __builtin_prefetch(at, 1);
    if (rows.size() > 2 * kLineRows) {
        __builtin_prefetch(at - kLineRows, 1);
        __builtin_prefetch(at + kLineRows, 1);
    }
}

}  // namespace vorrim
