#pragma once
// Which runs of four and of five neighbouring bytes (case folded), no separator of words among
// them, occur in the texts of a segment's rows, part by part: Bloom filters of one hash, one for
// each of up to 64 parts of 512 rows, lying across.
//
//     place of a run     0 .............. 65535
//     part 0 to 63       64 bits in each
//
// A needle of four bytes or more occurs in no row of a part that lacks one of its runs. So a search
// for a rare word ANDs a few words and passes over nearly all parts without a look at their rows.
// Shorter needles tell nothing here. Runs between two words, of which a name has more than of
// others, are left out: hardly any needle has them.
//
// A run with a digit has two places. Such runs are what tells short needles apart, and names have
// few of them. Every filter spreads runs in its own way: a rare run that shares its place with a
// frequent one would otherwise do so in all of them, and leave all parts.
//
// Threads     None inside.
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "base/golden_ratio.h"
#include "client/index/folded_bytes.h"
#include "meta/RecordView.h"

namespace vorrim {

// A run as filters know it: a hash of its bytes, and whether there is a digit among them.
class GramRun {
public:
    GramRun() noexcept = default;
    GramRun(std::uint64_t bytes, bool digit) noexcept
        : packed_(static_cast<std::uint32_t>(bytes * kGoldenRatio >> 32) << 1 | (digit ? 1 : 0)) {}

    [[nodiscard]] std::uint32_t hash() const noexcept { return packed_; }
    [[nodiscard]] bool digit() const noexcept { return (packed_ & 1) != 0; }

private:
    std::uint32_t packed_;
};

inline constexpr std::size_t kShortRun = 4;
inline constexpr std::size_t kLongRun = 5;

// Calls visit(run, length) for the runs of a text, in the order in which they end.
template <class Visit>
void for_each_gram_run(std::string_view text, Visit&& visit) {
    constexpr std::uint64_t kShortMask = (std::uint64_t{1} << (8 * kShortRun)) - 1;
    constexpr std::uint64_t kLongMask = (std::uint64_t{1} << (8 * kLongRun)) - 1;
    std::uint64_t window = 0;
    std::size_t at = 0;
    std::size_t digit_at = 0;  // the last one, counted as `at` is
    for (const char byte : text) {
        window = window << 8 | folded_byte(byte);
        at = separates_words(byte) ? 0 : at + 1;
        if (at == 0) digit_at = 0;
        if (byte >= '0' && byte <= '9') digit_at = at;
        if (at >= kShortRun)
            visit(GramRun(window & kShortMask, digit_at + kShortRun > at), kShortRun);
        if (at >= kLongRun) visit(GramRun(window & kLongMask, digit_at + kLongRun > at), kLongRun);
    }
}

// The runs of a record's texts, made before anybody has to wait for them. If they are very many
// they are not kept but made anew each time.
class GramRuns {
public:
    GramRuns() noexcept {}  // leaves the array as it is: it is filled as far as it is used
    explicit GramRuns(RecordView record) noexcept {
        for_each_of(record, [this](GramRun run) {
            if (count_ < runs_.size()) runs_[count_] = run;
            ++count_;
        });
    }

    // Calls visit(run) for each; the record is the one of which they were made.
    template <class Visit>
    void for_each(RecordView record, Visit&& visit) const {
        if (count_ > runs_.size()) return for_each_of(record, visit);
        for (const GramRun run : std::span(runs_).first(count_))
            visit(run);
    }

private:
    static constexpr std::size_t kMost = 128;

    template <class Visit>
    static void for_each_of(RecordView record, Visit&& visit) {
        for (const TagView& tag : record.tags())
            if (tag.type == TagType::text)
                for_each_gram_run(tag.text(), [&](GramRun run, std::size_t) { visit(run); });
    }

    std::size_t count_ = 0;  // of all, also when they are too many
    std::array<GramRun, kMost> runs_;
};

class GramFilter {
public:
    using Parts = std::uint64_t;  // one bit each
    static constexpr Parts kAllParts = ~Parts{0};
    static constexpr std::uint32_t kMaxParts = 64;
    static constexpr std::uint32_t kPartRows = 512;
    // 512 names of 40 letters fill three tenths of their bits.
    static constexpr std::size_t kPlaceBits = 16;

    // Where the runs are in the filter of a segment.
    class Places {
    public:
        // By the first row of which the filter tells.
        explicit Places(std::uint32_t first_row) noexcept {
            std::uint64_t mixed = (first_row + kGoldenRatio) * kGoldenRatio;
            mixed = (mixed ^ mixed >> 32) * kGoldenRatio;
            factor_ = (mixed ^ mixed >> 29) | 1;
        }
        // Calls visit(place) for each until one returns false; returns whether none did.
        template <class Visit>
        bool for_each(GramRun run, Visit&& visit) const {
            const std::uint64_t spread = run.hash() * factor_;
            if (!visit(static_cast<std::uint32_t>(spread >> (64 - kPlaceBits)))) return false;
            return !run.digit() ||
                   visit(static_cast<std::uint32_t>(spread >> (64 - 2 * kPlaceBits)) &
                         ((1u << kPlaceBits) - 1));
        }

    private:
        std::uint64_t factor_;
    };

    // Adds a record to a part; the runs are those of its texts.
    void add(std::uint32_t part, RecordView record, const GramRuns& runs,
             const Places& places) noexcept {
        const Parts bit = Parts{1} << part;
        runs.for_each(record, [&](GramRun run) {
            places.for_each(run, [&](std::uint32_t place) {
                places_[place] |= bit;
                return true;
            });
        });
    }

    // The parts that have something at this place.
    [[nodiscard]] Parts at(std::uint32_t place) const noexcept { return places_[place]; }
    void prefetch(std::uint32_t place) const noexcept { __builtin_prefetch(&places_[place]); }

private:
    std::array<Parts, std::size_t{1} << kPlaceBits> places_{};
};

}  // namespace vorrim
