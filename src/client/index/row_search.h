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

// Where the row should be; `rows` is not empty.
[[nodiscard]] inline std::size_t guess_of(std::span<const std::uint32_t> rows,
                                          std::uint32_t row) noexcept {
    const std::uint32_t first = rows.front();
    const std::uint32_t last = rows.back();
    if (row <= first) return 0;
    if (row >= last) return rows.size() - 1;
    return static_cast<std::size_t>(std::uint64_t{row - first} * (rows.size() - 1) /
                                    (last - first));
}

// The index of the first row that is not lower than `row`: as std::lower_bound.
[[nodiscard]] inline std::size_t find_row(std::span<const std::uint32_t> rows,
                                          std::uint32_t row) noexcept {
    if (rows.empty()) return 0;
    std::size_t low = guess_of(rows, row);
    std::size_t high = low;
    std::size_t step = 4;
    if (rows[low] < row) {
        while (high < rows.size() && rows[high] < row) {
            low = high + 1;
            high = std::min(rows.size(), high + step);
            step *= 2;
        }
    } else {
        while (low > 0 && rows[low - 1] >= row) {
            high = low - 1;
            low = low > step ? low - step : 0;
            step *= 2;
        }
    }
    return static_cast<std::size_t>(
        std::lower_bound(rows.begin() + static_cast<std::ptrdiff_t>(low),
                         rows.begin() + static_cast<std::ptrdiff_t>(high), row) -
        rows.begin());
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
