#pragma once
// A set of numbers below a bound of up to two billion, with "which is the next one" in a few steps.
//
//     level 2   one bit per word of level 1 that is not zero
//     level 1   one bit per word of level 0 that is not zero
//     level 0   one bit per number
//
// The memory of all levels is zero pages of the system until a number in them is set: a large bound
// costs address space, each number at most one page per level.
//
// Threads     None inside; const operations may run side by side.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

namespace vorrim {

class SparseBits {
public:
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;

    SparseBits() = default;
    // An empty set of numbers below `bound`.
    explicit SparseBits(std::uint32_t bound);

    void set(std::uint32_t number) noexcept;
    void clear(std::uint32_t number) noexcept;
    // The lowest number in the set that is not below `from`, or kNone.
    [[nodiscard]] std::uint32_t next(std::uint32_t from) const noexcept;

private:
    struct Free {
        void operator()(std::uint64_t* words) const noexcept { std::free(words); }
    };
    struct Level {
        std::unique_ptr<std::uint64_t[], Free> words;
        std::uint32_t count = 0;
    };

    std::uint32_t bound_ = 0;
    std::vector<Level> levels_;
};

}  // namespace vorrim
