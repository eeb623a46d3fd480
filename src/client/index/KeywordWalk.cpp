#include "client/index/KeywordWalk.h"

#include <algorithm>
#include <array>
#include <bit>

#include "client/index/row_search.h"

namespace vorrim {

namespace {

std::uint32_t stretch_of(const Segment& segment, std::uint32_t row) {
    return segment.slot_of(row) / Segment::kStretchRows;
}

}  // namespace

std::optional<std::uint32_t> KeywordWalk::run(const RowList& list, std::uint32_t from) {
    next_.reset();
    if (list.visit(list.rank(from), *this) || next_) collector_.finish();
    return collector_.full() ? std::nullopt : next_;
}

bool KeywordWalk::rows(std::span<const std::uint32_t> run) {
    while (!run.empty()) {
        if (budget_.spent()) {
            next_ = run.front();
            return false;
        }
        budget_.charge(kCostAtOnce);
        const Segment& segment = table_.rows().segment_of(run.front());
        const std::uint32_t stretch = stretch_of(segment, run.front());
        if (!may_be_in(segment, stretch)) {
            run = run.subspan(find_row(run, next_possible(segment, stretch)));
            continue;
        }
        const std::uint32_t end =
            plan_.admits_all() ? segment.rows_end() : segment.stretch_end(stretch);
        std::array<std::uint32_t, CandidatePlan::kSlots> slots;
        std::size_t taken = 0;
        for (; taken < std::min(run.size(), slots.size()) && run[taken] < end; ++taken)
            slots[taken] = segment.slot_of(run[taken]);
        run = run.subspan(taken);
        if (!offer(segment, stretch, {slots.data(), taken})) return false;
        budget_.charge(plan_.row_cost() * static_cast<std::uint32_t>(taken));
    }
    return true;
}

bool KeywordWalk::may_be_in(const Segment& segment, std::uint32_t stretch) {
    if (plan_.admits_all()) return true;
    if (asked_ != &segment) {
        asked_ = &segment;
        stretches_ = plan_.stretches(segment);
    }
    return (stretches_ >> stretch & 1) != 0;
}

// The first row behind a stretch in which a match may be, or one between it and the rows before.
std::uint32_t KeywordWalk::next_possible(const Segment& from, std::uint32_t stretch) {
    const auto& segments = table_.rows().segments();
    const Segment* segment = &from;
    std::uint32_t next = stretch + 1;
    while (true) {
        for (; next < segment->stretches(); ++next)
            if (may_be_in(*segment, next))
                return next == 0 ? segment->first_row() : segment->stretch_end(next - 1);
        if (segment->ordinal + 1 == segments.size()) return segment->rows_end();
        segment = segments[segment->ordinal + 1].get();
        next = 0;
    }
}

// Offers what the plan and the asker leave of some slots of a stretch.
bool KeywordWalk::offer(const Segment& segment, std::uint32_t stretch,
                        std::span<std::uint32_t> slots) {
    if (reachable_only_) slots = slots.first(segment.reachable_of(slots));
    if (!plan_.admits_all()) {
        if (stretch + 1 < segment.stretches() && may_be_in(segment, stretch + 1))
            plan_.prefetch(segment, stretch + 1);
        slots = slots.first(plan_.narrow(segment, slots));
    }
    return std::all_of(slots.begin(), slots.end(),
                       [&](std::uint32_t slot) { return offer(segment, slot); });
}

// Offers what the plan and the asker leave of the bits.
bool KeywordWalk::narrowed(const Segment& segment, std::uint32_t stretch, Segment::Stretch& bits) {
    if (reachable_only_) {
        const Segment::Stretch reachable = segment.reachable_ones(stretch);
        for (std::size_t line = 0; line < bits.size(); ++line)
            bits[line] &= reachable[line];
    }
    if (!plan_.admits_all()) {
        if (stretch + 1 < segment.stretches() && may_be_in(segment, stretch + 1))
            plan_.prefetch(segment, stretch + 1);
        plan_.narrow(segment, stretch, bits);
    }
    for (std::uint32_t word = 0; word < Segment::kStretchRows / 64; ++word)
        for (std::uint64_t rest = bits[word / 8].words[word % 8]; rest != 0; rest &= rest - 1) {
            const std::uint32_t slot = stretch * Segment::kStretchRows + word * 64 +
                                       static_cast<std::uint32_t>(std::countr_zero(rest));
            if (!offer(segment, slot)) return false;
        }
    budget_.charge(plan_.stretch_cost());
    return true;
}

bool KeywordWalk::window(std::uint32_t base, RowBlocks::Window words, std::uint32_t first) {
    const Segment& segment = table_.rows().segment_of(base);
    if (budget_.spent()) {
        next_ = first;
        return false;
    }
    budget_.charge(kCostAtOnce);
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
    const std::uint32_t stretch = segment.slot_of(base) / Segment::kStretchRows;
    if (!may_be_in(segment, stretch)) return true;
    Segment::Stretch bits{};
    for (std::uint32_t word = first_word; word < words.size(); ++word)
        bits[word / 8].words[word % 8] = words[word];
    bits[first_word / 8].words[first_word % 8] &= ~std::uint64_t{0} << (first % 64);
    return narrowed(segment, stretch, bits);
}

}  // namespace vorrim
