#pragma once
// Which runs of four and of five neighbouring bytes (case folded), no separator of words among
// them, occur in the texts of a segment's rows, part by part: Bloom filters of one hash, one for
// each of up to 64 parts of 512 rows, lying across.
//
//     place of a run     0 .............. 32767
//     part 0 to 63       64 bits in each
//
// A needle of four bytes or more occurs in no row of a part that lacks one of its runs. So a search
// for a rare word ANDs a few words and passes over nearly all parts without a look at their rows.
// Shorter needles tell nothing here. Runs between two words, of which a name has more than of
// others, are left out: hardly any needle has them.
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
    using Parts = std::uint64_t;  // one bit each
    static constexpr Parts kAllParts = ~Parts{0};
    static constexpr std::uint32_t kMaxParts = 64;
    static constexpr std::uint32_t kPartRows = 512;
    // 512 names of 40 letters fill two fifths of their bits.
    static constexpr std::size_t kPlaceBits = 15;

    // Calls visit(place) for every run of so many bytes of the text.
    template <std::size_t kGram, class Visit>
    static void for_each_run(std::string_view text, Visit&& visit) {
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
    // The longer ones, which tell more, go first.
    template <class Visit>
    static void for_each_place(std::string_view text, Visit&& visit) {
        for_each_run<5>(text, visit);
        for_each_run<4>(text, visit);
    }

    // Adds all text tags of a record to a part.
    void add(std::uint32_t part, RecordView record) noexcept;

    // The parts that have something at this place.
    [[nodiscard]] Parts at(std::uint32_t place) const noexcept { return places_[place]; }
    void prefetch(std::uint32_t place) const noexcept { __builtin_prefetch(&places_[place]); }

private:
    std::array<Parts, std::size_t{1} << kPlaceBits> places_{};
};

}  // namespace vorrim
