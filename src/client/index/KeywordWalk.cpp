#include "client/index/KeywordWalk.h"

#include <algorithm>
#include <array>
#include <bit>

namespace vorrim {

namespace {

std::uint32_t stretch_of(const Segment& segment, std::uint32_t row) {
    return segment.slot_of(row) / Segment::kStretchRows;
}

}  // namespace

void KeywordWalk::run(const RowList& list, std::uint32_t from) {
    if (list.visit(from, *this)) collector_.finish();
}

bool KeywordWalk::rows(std::span<const std::uint32_t> run) {
    while (!run.empty()) {
        const Segment& segment = table_.rows().segment_of(run.front());
        if (!plan_.admits_all() && run.size() >= kManyRows &&
            run[kManyRows - 1] < segment.rows_end() &&
            stretch_of(segment, run[kManyRows - 1]) == stretch_of(segment, run.front())) {
            if (!many_rows(segment, run)) return false;
            continue;
        }
        std::size_t few = 1;
        while (few < run.size() && few < kManyRows && run[few] < segment.rows_end())
            ++few;
        if (!few_rows(segment, run.first(few))) return false;
        run = run.subspan(few);
    }
    return true;
}

bool KeywordWalk::few_rows(const Segment& segment, std::span<const std::uint32_t> rows) {
    for (const std::uint32_t row : rows) {
        const std::uint32_t slot = segment.slot_of(row);
        if (reachable_only_ && !segment.reachable(slot)) continue;
        if (!plan_.admits_all() && !plan_.admits(segment, slot)) continue;
        if (!collector_.offer(segment.handle_of(slot))) return false;
    }
    return true;
}

bool KeywordWalk::many_rows(const Segment& segment, std::span<const std::uint32_t>& run) {
    const std::uint32_t stretch = stretch_of(segment, run.front());
    const std::uint32_t first = stretch * Segment::kStretchRows;
    Segment::Stretch bits{};
    // Neighbouring rows mostly share a word: it is put together before it is stored.
    std::uint32_t word = (segment.slot_of(run.front()) - first) / 64;
    std::uint64_t in_word = 0;
    std::size_t taken = 0;
    for (; taken < run.size() && run[taken] < segment.rows_end(); ++taken) {
        const std::uint32_t bit = segment.slot_of(run[taken]) - first;
        if (bit >= Segment::kStretchRows) break;
        if (bit / 64 != word) {
            bits[word / 8].words[word % 8] = in_word;
            word = bit / 64;
            in_word = 0;
        }
        in_word |= std::uint64_t{1} << (bit % 64);
    }
    bits[word / 8].words[word % 8] = in_word;
    run = run.subspan(taken);
    return narrowed(segment, stretch, bits);
}

// Offers what the plan and the asker leave of the bits.
bool KeywordWalk::narrowed(const Segment& segment, std::uint32_t stretch, Segment::Stretch& bits) {
    if (reachable_only_) {
        const Segment::Stretch reachable = segment.reachable_ones(stretch);
        for (std::size_t line = 0; line < bits.size(); ++line)
            bits[line] &= reachable[line];
    }
    if (!plan_.admits_all()) {
        if (stretch + 1 < segment.stretches()) plan_.prefetch(segment, stretch + 1);
        plan_.narrow(segment, stretch, bits);
    }
    for (std::uint32_t word = 0; word < Segment::kStretchRows / 64; ++word)
        for (std::uint64_t rest = bits[word / 8].words[word % 8]; rest != 0; rest &= rest - 1) {
            const std::uint32_t slot = stretch * Segment::kStretchRows + word * 64 +
                                       static_cast<std::uint32_t>(std::countr_zero(rest));
            if (!collector_.offer(segment.handle_of(slot))) return false;
        }
    return true;
}

bool KeywordWalk::window(std::uint32_t base, RowBlocks::Window words, std::uint32_t first) {
    const Segment& segment = table_.rows().segment_of(base);
    const std::uint32_t first_word = (first - base) / 64;
    if (!segment.dense()) {
        std::array<std::uint32_t, RowBlocks::kWindowRows> unpacked;
        std::size_t count = 0;
        for (std::uint32_t word = first_word; word < words.size(); ++word)
            for (std::uint64_t rest = words[word]; rest != 0; rest &= rest - 1) {
                const std::uint32_t row =
                    base + word * 64 + static_cast<std::uint32_t>(std::countr_zero(rest));
                if (row >= first) unpacked[count++] = row;
            }
        return rows({unpacked.data(), count});
    }

    // The window is a stretch of the segment, bit for bit.
    Segment::Stretch bits{};
    for (std::uint32_t word = first_word; word < words.size(); ++word)
        bits[word / 8].words[word % 8] = words[word];
    bits[first_word / 8].words[first_word % 8] &= ~std::uint64_t{0} << (first % 64);
    return narrowed(segment, segment.slot_of(base) / Segment::kStretchRows, bits);
}

}  // namespace vorrim
