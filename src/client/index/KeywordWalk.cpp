#include "client/index/KeywordWalk.h"

#include <algorithm>
#include <array>
#include <bit>

namespace vorrim {

void KeywordWalk::run(const RowList& list, std::uint32_t from) {
    if (list.visit(from, *this)) collector_.finish();
}

bool KeywordWalk::rows(std::span<const std::uint32_t> run) {
    while (!run.empty()) {
        const Segment& segment = table_.rows().segment_of(run.front());
        const std::uint32_t end = segment.window_end() * Segment::kRows;
        std::size_t here = 1;
        while (here < run.size() && here < kManyRows && run[here] < end)
            ++here;
        if (here < kManyRows || plan_.admits_all()) {
            if (!few_rows(segment, run.first(here))) return false;
        } else {
            here = static_cast<std::size_t>(std::lower_bound(run.begin(), run.end(), end) -
                                            run.begin());
            if (!many_rows(segment, run.first(here))) return false;
        }
        run = run.subspan(here);
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

bool KeywordWalk::many_rows(const Segment& segment, std::span<const std::uint32_t> rows) {
    const std::uint32_t first = segment.slot_of(rows.front()) / Segment::Line::kRows;
    const std::uint32_t end = segment.slot_of(rows.back()) / Segment::Line::kRows + 1;
    Segment::Bits bits;
    std::copy(segment.live_bits() + first, segment.live_bits() + end, bits.begin() + first);
    if (reachable_only_)
        for (std::uint32_t line = first; line < end; ++line)
            bits[line] = segment.reachable_bits()[line];
    plan_.narrow(segment, bits, first, end);
    for (const std::uint32_t row : rows) {
        const std::uint32_t slot = segment.slot_of(row);
        if (!bits[slot / Segment::Line::kRows].test(slot % Segment::Line::kRows)) continue;
        if (!collector_.offer(segment.handle_of(slot))) return false;
    }
    return true;
}

bool KeywordWalk::window(std::uint32_t base, RowBlocks::Window words, std::uint32_t first) {
    const Segment& segment = table_.rows().segment_of(base);
    if (!segment.dense()) {
        std::array<std::uint32_t, RowBlocks::kWindowRows> unpacked;
        std::size_t count = 0;
        for (std::uint32_t word = (first - base) / 64; word < words.size(); ++word)
            for (std::uint64_t rest = words[word]; rest != 0; rest &= rest - 1) {
                const std::uint32_t row =
                    base + word * 64 + static_cast<std::uint32_t>(std::countr_zero(rest));
                if (row >= first) unpacked[count++] = row;
            }
        return rows({unpacked.data(), count});
    }

    // Slot i of the segment is row base + i, bit i of the window.
    const std::uint32_t from = first - base;
    const std::uint32_t first_line = from / Segment::Line::kRows;
    Segment::Bits bits{};
    for (std::uint32_t line = first_line; line < segment.lines(); ++line) {
        std::copy_n(words.data() + line * bits[line].words.size(), bits[line].words.size(),
                    bits[line].words.data());
        if (reachable_only_) bits[line] &= segment.reachable_bits()[line];
    }
    if (!plan_.admits_all()) plan_.narrow(segment, bits, first_line, segment.lines());
    for (std::uint32_t word = from / 64; word < segment.slots() / 64; ++word)
        for (std::uint64_t rest = bits[word / 8].words[word % 8]; rest != 0; rest &= rest - 1) {
            const std::uint32_t slot =
                word * 64 + static_cast<std::uint32_t>(std::countr_zero(rest));
            if (slot >= from && !collector_.offer(segment.handle_of(slot))) return false;
        }
    return true;
}

}  // namespace vorrim
