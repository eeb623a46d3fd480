#pragma once
// Which runs of five neighbouring bytes (case folded), no separator of words among them, occur in
// the texts of a segment's rows, stretch by stretch: Bloom filters of one hash, one for each of up
// to eight stretches, lying across.
//
//     place of a run     0 .............. 262143
//     stretch 0 to 7     8 bits in each
//
// A needle of five bytes or more occurs in no row of a stretch that lacks one of its runs. So a
// search for a rare word ANDs a few bytes and passes over most stretches without a look at their
// rows. Shorter needles tell nothing here. With the runs between two words, which are most of a
// name and of little use, the filters were twice as full.
//
// Threads     None inside.
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "client/index/folded_bytes.h"
#include "meta/RecordView.h"

namespace vorrim {

class GramFilter {
public:
    using Stretches = std::uint8_t;  // one bit each
    static constexpr Stretches kAllStretches = 0xFF;
    static constexpr std::uint32_t kMaxStretches = 8;
    // 4096 names of 40 letters fill a sixth of their bits.
    static constexpr std::size_t kPlaceBits = 18;

    // Calls visit(place) for every run of the text.
    template <class Visit>
    static void for_each_place(std::string_view text, Visit&& visit) {
        constexpr std::size_t kGram = 5;
        constexpr std::uint64_t kGramMask = (std::uint64_t{1} << (8 * kGram)) - 1;
        constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15;  // 2^64 divided by the golden ratio
        std::uint64_t window = 0;
        std::size_t at = 0;
        for (const char byte : text) {
            window = (window << 8 | folded_byte(byte)) & kGramMask;
            at = separates_words(byte) ? 0 : at + 1;
            if (at >= kGram)
                visit(static_cast<std::uint32_t>((window * kSpread) >> (64 - kPlaceBits)));
        }
    }

    // Adds all text tags of a record to a stretch.
    void add(std::uint32_t stretch, RecordView record) noexcept;
    // Adds to each stretch, in which of the other filter's stretches are rows that it takes over.
    using Origins = std::array<Stretches, kMaxStretches>;
    void unite(const GramFilter& other, const Origins& origins) noexcept;

    // The stretches that have something at this place.
    [[nodiscard]] Stretches at(std::uint32_t place) const noexcept { return places_[place]; }
    // The share of all bits of so many stretches that are set.
    [[nodiscard]] double density(std::uint32_t stretches) const noexcept;

private:
    std::array<Stretches, std::size_t{1} << kPlaceBits> places_{};
};

}  // namespace vorrim
