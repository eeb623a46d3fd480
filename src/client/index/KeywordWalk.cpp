#include "client/index/KeywordWalk.h"

#include <algorithm>
#include <bit>

#include "client/index/row_search.h"

namespace vorrim {

std::optional<std::uint32_t> KeywordWalk::run(const RowList& list, std::uint32_t from) {
    next_.reset();
    from_ = from;
    const bool plain = plan_.admits_all() || list.size() <= kFew;
    if ((plain ? list.visit(list.rank(from), *this) : walk_parts(list)) || next_)
        collector_.finish();
    return collector_.full() ? std::nullopt : next_;
}

// ---- everything ----

bool KeywordWalk::rows(std::span<const std::uint32_t> run) {
    if (reachable_only_ && run.size() > kFew) return reachable_rows(run);
    const Segment* segment = nullptr;
    for (const std::uint32_t row : run) {
        if (segment == nullptr || row >= segment->rows_end())
            segment = &table_.rows().segment_of(row);
        const std::uint32_t slot = segment->slot_of(row);
        if (reachable_only_ && !segment->reachable(slot)) {
            budget_.charge(kRowCost);
        } else if (!offer(row, segment->record_at(slot))) {
            return false;
        }
    }
    return true;
}

// Some of one segment at once.
bool KeywordWalk::reachable_rows(std::span<const std::uint32_t> run) {
    while (!run.empty()) {
        if (budget_.spent() && run.front() > from_) {
            next_ = run.front();
            return false;
        }
        const Segment& segment = table_.rows().segment_of(run.front());
        auto some = run.first(std::min(run.size(), CandidatePlan::kSlots));
        if (some.back() >= segment.rows_end())
            some = some.first(find_row(some, segment.rows_end()));
        run = run.subspan(some.size());
        budget_.charge(static_cast<std::uint32_t>(some.size()) / kRowsOfAUnit);
        std::array<std::uint32_t, CandidatePlan::kSlots> slots;
        std::ranges::transform(some, slots.begin(),
                               [&](std::uint32_t row) { return segment.slot_of(row); });
        if (!offer_slots(segment, {slots.data(), some.size()})) return false;
    }
    return true;
}

// A window is a stretch of a dense segment, bit for bit.
bool KeywordWalk::window(std::uint32_t base, RowBlocks::Window words, std::uint32_t first) {
    const Segment& segment = table_.rows().segment_of(base);
    if (!reachable_only_ || !segment.dense())
        return RowBlocks::visit_window(base, words, first, [this](auto run) { return rows(run); });
    if (budget_.spent() && first > from_) {
        next_ = first;
        return false;
    }
    budget_.charge(kWindowCost);
    std::array<std::uint64_t, RowBlocks::kWindowWords> both;
    const Segment::Stretch reachable =
        segment.reachable_ones((base - segment.first_row()) / RowBlocks::kWindowRows);
    for (std::size_t word = 0; word < both.size(); ++word)
        both[word] = words[word] & reachable[word / 8].words[word % 8];
    return RowBlocks::visit_window(base, both, first, [this](auto run) { return rows(run); });
}

// ---- part by part ----

bool KeywordWalk::walk_parts(const RowList& list) {
    const auto& segments = table_.rows().segments();
    const auto first =
        std::partition_point(segments.begin(), segments.end(),
                             [&](const auto& segment) { return segment->rows_end() <= from_; });
    ordinal_ = static_cast<std::uint32_t>(first - segments.begin());
    for (std::uint32_t i = 0; i < kSegmentsAhead && ordinal_ + i < segments.size(); ++i)
        plan_.prefetch_parts(*segments[ordinal_ + i]);
    return list.visit_runs([this](const Run& run) { return meet(run); }) && drain();
}

bool KeywordWalk::meet(const Run& run) {
    const auto& segments = table_.rows().segments();
    std::uint32_t row = std::max(run.base, from_);
    while (row < run.end) {
        while (ordinal_ < segments.size() && segments[ordinal_]->rows_end() <= row)
            ++ordinal_;
        if (ordinal_ == segments.size()) return true;
        const Segment& segment = *segments[ordinal_];
        row = std::max(row, segment.first_row());
        const std::uint32_t end = std::min(run.end, segment.rows_end());
        if (row < end && !meet(run, segment, row, end)) return false;
        row = segment.rows_end();
    }
    return true;
}

// Meets the rows of a run, from one on and up to another, that are in one segment.
bool KeywordWalk::meet(const Run& run, const Segment& segment, std::uint32_t from,
                       std::uint32_t end) {
    if (segment.grams() == nullptr) return meet_all(run, segment, from, end);
    const std::uint32_t known = std::clamp(segment.first_known(), from, end);
    const std::uint32_t known_end = std::clamp(segment.known_end(), known, end);
    return meet_all(run, segment, from, known) && meet_known(run, segment, known, known_end) &&
           meet_all(run, segment, known_end, end);
}

bool KeywordWalk::meet_all(const Run& run, const Segment& segment, std::uint32_t from,
                           std::uint32_t end) {
    if (from == end) return true;
    if (run.bits == nullptr)
        return meet_rows(run, segment, from, end, [](std::uint32_t) { return true; });
    for (std::uint32_t first = from / kPartRows * kPartRows; first < end; first += kPartRows)
        if (!push(part_at(run, segment, first))) return false;
    return true;
}

// By the parts that are possible, or where most are, or a run has hardly as many rows as there are
// parts, row by row.
bool KeywordWalk::meet_known(const Run& run, const Segment& segment, std::uint32_t from,
                             std::uint32_t end) {
    if (from == end) return true;
    const auto part_of = [&](std::uint32_t row) {
        return (row - segment.first_known()) / kPartRows;
    };
    const auto possible_rows = [&] {
        return static_cast<std::uint32_t>(std::popcount(parts_of(segment))) * kPartRows;
    };
    const std::uint32_t known_rows = segment.known_end() - segment.first_known();
    const bool few = run.rows.size() < (run.end - run.base) / kPartRows;
    if (run.bits == nullptr && !few && segment.dense() && plan_.has_columns() &&
        possible_rows() > known_rows / 8 * 7)
        return meet_most(run, segment, from, end);
    if (run.bits == nullptr && (few || possible_rows() * 2 > known_rows))
        return meet_rows(run, segment, from, end, [&](std::uint32_t row) {
            return (parts_of(segment) >> part_of(row) & 1) != 0;
        });
    GramFilter::Parts rest = parts_of(segment) & GramFilter::kAllParts << part_of(from);
    for (; rest != 0; rest &= rest - 1) {
        const std::uint32_t first =
            segment.first_known() + static_cast<std::uint32_t>(std::countr_zero(rest)) * kPartRows;
        if (first >= end) break;
        if (!push(part_at(run, segment, first))) return false;
    }
    return true;
}

// Row by row: those that are `possible`.
template <class Possible>
bool KeywordWalk::meet_rows(const Run& run, const Segment& segment, std::uint32_t from,
                            std::uint32_t end, Possible&& possible) {
    std::size_t at = find_row(run.rows, from);
    const auto more = [&] { return at < run.rows.size() && run.rows[at] < end; };
    if (!more()) return true;
    if (!drain()) return false;
    while (more()) {
        if (budget_.spent() && run.rows[at] > from_) {
            next_ = run.rows[at];
            return false;
        }
        std::array<std::uint32_t, CandidatePlan::kSlots> slots;
        std::size_t count = 0;
        for (; count < slots.size() && more(); ++at)
            if (possible(run.rows[at])) slots[count++] = segment.slot_of(run.rows[at]);
        if (!offer_slots(segment, {slots.data(), count})) return false;
    }
    return true;
}

// Row by row where nearly all are possible: the first column is asked at once, so that its lines
// are read one behind the other.
bool KeywordWalk::meet_most(const Run& run, const Segment& segment, std::uint32_t from,
                            std::uint32_t end) {
    const std::size_t first = find_row(run.rows, from);
    std::span<const std::uint32_t> rows = run.rows.subspan(first, find_row(run.rows, end) - first);
    if (!rows.empty() && !drain()) return false;
    while (!rows.empty()) {
        if (budget_.spent() && rows.front() > from_) {
            next_ = rows.front();
            return false;
        }
        std::array<std::uint32_t, CandidatePlan::kSlots> slots;
        const std::size_t before = rows.size();
        const std::size_t count = plan_.narrow_rows(segment, rows, slots);
        budget_.charge(static_cast<std::uint32_t>(before - rows.size()) / kRowsOfAUnit);
        if (!offer_slots(segment, {slots.data(), count})) return false;
    }
    return true;
}

KeywordWalk::Part KeywordWalk::part_at(const Run& run, const Segment& segment,
                                       std::uint32_t first) {
    const std::uint32_t from = std::max(first, run.base);
    if (run.bits != nullptr)
        return {&segment, first, from, {}, 0, run.bits + (first - run.base) / 64};
    const auto at = static_cast<std::size_t>(std::uint64_t{from - run.base} * run.rows.size() /
                                             (run.end - run.base));
    return {&segment, first, from, run.rows, at, nullptr};
}

GramFilter::Parts KeywordWalk::parts_of(const Segment& segment) {
    if (asked_ != &segment) {
        const auto& segments = table_.rows().segments();
        if (segment.ordinal + kSegmentsAhead < segments.size())
            plan_.prefetch_parts(*segments[segment.ordinal + kSegmentsAhead]);
        budget_.charge(kPartsCost);
        asked_ = &segment;
        parts_ = plan_.parts(segment);
    }
    return parts_;
}

// Fetches what a part needs, and looks at the one that has waited longest.
bool KeywordWalk::push(const Part& part) {
    if (part.bits != nullptr) {
        __builtin_prefetch(part.bits);
    } else {
        constexpr std::size_t kLineRows = 16;
        __builtin_prefetch(part.rows.data() + part.at);
        __builtin_prefetch(part.rows.data() + part.at + kLineRows);
    }
    if (part.segment->dense())
        plan_.prefetch_line(*part.segment, (part.first - part.segment->first_row()) / kPartRows);
    waiting_[pushed_++ % kPartsAhead] = part;
    return pushed_ - popped_ < kPartsAhead || look_at(waiting_[popped_++ % kPartsAhead]);
}

bool KeywordWalk::drain() {
    while (popped_ != pushed_)
        if (!look_at(waiting_[popped_++ % kPartsAhead])) return false;
    return true;
}

bool KeywordWalk::look_at(const Part& part) {
    if (budget_.spent() && part.from > from_) {
        next_ = part.from;
        return false;
    }
    budget_.charge(plan_.line_cost());
    Segment::Line rows{};
    if (part.bits != nullptr) {
        std::copy_n(part.bits, rows.words.size(), rows.words.begin());
    } else {
        for (std::size_t at = find_row_near(part.rows, part.first, part.at);
             at < part.rows.size() && part.rows[at] - part.first < kPartRows; ++at)
            rows.set(part.rows[at] - part.first);
    }
    for (std::uint32_t row = part.first; row < std::min(from_, part.first + kPartRows); ++row)
        rows.reset(row - part.first);
    if (!rows.any()) return true;
    return part.segment->dense() ? offer_line(*part.segment, part.first, rows)
                                 : offer_packed(*part.segment, part.first, rows);
}

// The part is a line of the segment, bit for bit.
bool KeywordWalk::offer_line(const Segment& segment, std::uint32_t first, Segment::Line rows) {
    const std::uint32_t line = (first - segment.first_row()) / kPartRows;
    if (reachable_only_) rows &= segment.reachable_line(line);
    plan_.narrow(segment, line, rows);
    for (std::uint32_t word = 0; word < rows.words.size(); ++word)
        for (std::uint64_t rest = rows.words[word]; rest != 0; rest &= rest - 1) {
            const std::uint32_t row =
                first + word * 64 + static_cast<std::uint32_t>(std::countr_zero(rest));
            if (!offer(row, segment.record_at(row - segment.first_row()))) return false;
        }
    return true;
}

bool KeywordWalk::offer_packed(const Segment& segment, std::uint32_t first,
                               const Segment::Line& rows) {
    std::array<std::uint32_t, CandidatePlan::kSlots> slots;
    std::size_t count = 0;
    for (std::uint32_t word = 0; word < rows.words.size(); ++word)
        for (std::uint64_t rest = rows.words[word]; rest != 0; rest &= rest - 1) {
            slots[count++] = segment.slot_of(first + word * 64 +
                                             static_cast<std::uint32_t>(std::countr_zero(rest)));
            if (count == slots.size() &&
                !offer_slots(segment, {slots.data(), std::exchange(count, 0)}))
                return false;
        }
    return offer_slots(segment, {slots.data(), count});
}

// Offers what the plan and the asker leave of at most kSlots slots.
bool KeywordWalk::offer_slots(const Segment& segment, std::span<std::uint32_t> slots) {
    budget_.charge(kRowCost + plan_.row_cost() * static_cast<std::uint32_t>(slots.size()));
    if (reachable_only_) slots = slots.first(segment.reachable_of(slots));
    slots = slots.first(plan_.narrow(segment, slots));
    return std::all_of(slots.begin(), slots.end(), [&](std::uint32_t slot) {
        return offer(segment.row_of(slot), segment.record_at(slot));
    });
}

}  // namespace vorrim
