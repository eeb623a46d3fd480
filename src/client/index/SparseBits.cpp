#include "client/index/SparseBits.h"

#include <bit>
#include <new>

namespace vorrim {
namespace {

constexpr std::uint32_t kWordBits = 64;

constexpr std::uint64_t bit_of(std::uint32_t number) {
    return std::uint64_t{1} << (number % kWordBits);
}
constexpr std::uint64_t bits_from(std::uint32_t number) {
    return ~std::uint64_t{0} << (number % kWordBits);
}

}  // namespace

SparseBits::SparseBits(std::uint32_t bound) : bound_(bound) {
    std::uint32_t numbers = bound;
    do {
        Level level;
        level.count = numbers / kWordBits + (numbers % kWordBits != 0 ? 1 : 0);
        // calloc, because it alone hands out the system's zero pages untouched.
        level.words.reset(
            static_cast<std::uint64_t*>(std::calloc(level.count, sizeof(std::uint64_t))));
        if (!level.words) throw std::bad_alloc();
        numbers = level.count;
        levels_.push_back(std::move(level));
    } while (numbers > 1);
}

void SparseBits::set(std::uint32_t number) noexcept {
    for (Level& level : levels_) {
        std::uint64_t& word = level.words[number / kWordBits];
        const bool marked_above = word != 0;
        word |= bit_of(number);
        if (marked_above) return;
        number /= kWordBits;
    }
}

void SparseBits::clear(std::uint32_t number) noexcept {
    for (Level& level : levels_) {
        std::uint64_t& word = level.words[number / kWordBits];
        word &= ~bit_of(number);
        if (word != 0) return;
        number /= kWordBits;
    }
}

std::uint32_t SparseBits::next(std::uint32_t from) const noexcept {
    if (from >= bound_) return kNone;
    // Up until a word holds a bit at or behind the place, then down along first bits.
    for (std::size_t up = 0; up < levels_.size(); ++up) {
        if (from / kWordBits >= levels_[up].count) return kNone;
        const std::uint64_t here = levels_[up].words[from / kWordBits] & bits_from(from);
        if (here == 0) {
            from = from / kWordBits + 1;
            continue;
        }
        std::uint32_t found =
            from / kWordBits * kWordBits + static_cast<std::uint32_t>(std::countr_zero(here));
        for (std::size_t down = up; down-- > 0;)
            found = found * kWordBits +
                    static_cast<std::uint32_t>(std::countr_zero(levels_[down].words[found]));
        return found;
    }
    return kNone;
}

}  // namespace vorrim
