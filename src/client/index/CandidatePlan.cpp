#include "client/index/CandidatePlan.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "search/prefix_walk.h"
#include "search/required_sides.h"

namespace vorrim {

CandidatePlan::CandidatePlan(const SearchNode& root) {
    if (!may_report(root)) ask(root_, root, 0);
}

void CandidatePlan::ask(Group& group, const SearchNode& root, int depth) {
    walk_required(
        root,
        [&group](std::string_view text) {
            group.needed.add(text);
            // The longer ones, which tell more, go first.
            for (const std::size_t wanted : {kLongRun, kShortRun})
                for_each_gram_run(text, [&](GramRun run, std::size_t length) {
                    if (length == wanted && group.gram_count < kGrams)
                        group.grams[group.gram_count++] = run;
                });
        },
        [&](const SN_Operator& combine) {
            if (auto alternatives = alternatives_of(combine, depth); !alternatives.empty())
                group.alternatives.push_back(std::move(alternatives));
        });
    if (group.empty()) return;  // as that of most single words
    columns_ += std::min(kColumns, group.needed.count());
}

// The sides of an "or", or of an "exclusive or", of which one at least must be true; those of an
// "or" directly below it among them. None when a side asks for nothing, for then so does the whole.
std::vector<CandidatePlan::Group> CandidatePlan::alternatives_of(const SN_Operator& root,
                                                                 int depth) {
    std::vector<Group> groups;
    bool asks = depth < kDepth;
    prefix_walk(root, [&](const SearchNode& node) {
        if (!asks) return Sides::neither;
        if (alternatives_ == kAlternatives) {
            asks = false;
            return Sides::neither;
        }
        const auto* combine = node_as<SN_Operator>(&node);
        if (combine &&
            (combine->op() == CombineOp::kOr || combine->op() == CombineOp::kExclusiveOr))
            return Sides::both;
        ++alternatives_;
        ask(groups.emplace_back(), node, depth + 1);
        asks = !groups.back().empty();
        return Sides::neither;
    });
    if (!asks) groups.clear();
    return groups;
}

void CandidatePlan::order_by(const RowStore::ColumnWeights& weights) noexcept {
    order(root_, weights);
}

void CandidatePlan::order(Group& group, const RowStore::ColumnWeights& weights) noexcept {
    group.column_count = 0;
    group.needed.for_each_column([&](std::size_t column) {
        std::size_t at = group.column_count;
        for (; at > 0 && weights[column] < weights[group.columns[at - 1]]; --at)
            if (at < kColumns) group.columns[at] = group.columns[at - 1];
        if (at == kColumns) return;
        group.columns[at] = static_cast<std::uint16_t>(column);
        if (group.column_count < kColumns) ++group.column_count;
    });
    for (auto& alternatives : group.alternatives)
        for (Group& alternative : alternatives)
            order(alternative, weights);
}

GramFilter::Parts CandidatePlan::parts(const Group& group, const GramFilter& grams,
                                       const GramFilter::Places& places) noexcept {
    GramFilter::Parts left = GramFilter::kAllParts;
    for (const GramRun run : group.runs())
        if (!places.for_each(run, [&](auto place) { return (left &= grams.at(place)) != 0; }))
            return 0;
    for (const auto& alternatives : group.alternatives) {
        GramFilter::Parts united = 0;
        for (const Group& alternative : alternatives)
            united |= parts(alternative, grams, places);
        if ((left &= united) == 0) return 0;
    }
    return left;
}

template <class Visit>
void CandidatePlan::for_each_first(Visit&& visit) const {
    visit(root_);
    if (!root_.needed.empty()) return;
    for (const Group& alternative : root_.alternatives.front())
        visit(alternative);
}

void CandidatePlan::prefetch_parts(const Segment& segment) const noexcept {
    constexpr std::size_t kRunsAhead = 4;
    const GramFilter* const grams = segment.grams();
    if (grams == nullptr) return;
    const GramFilter::Places places = segment.gram_places();
    for_each_first([&](const Group& group) {
        for (const GramRun run : group.runs(kRunsAhead))
            places.for_each(run, [&](auto place) {
                grams->prefetch(place);
                return true;
            });
    });
}

void CandidatePlan::narrow(const Segment& segment, std::uint32_t stretch,
                           Segment::Stretch& bits) const noexcept {
    std::uint32_t line = stretch * Segment::kStretchLines;
    for (Segment::Line& of_stretch : bits) {
        if (of_stretch.any()) narrow(root_, segment, line, of_stretch, kColumns);
        ++line;
    }
}

// Line by line: after two or three columns most lines are empty, and the others are not read.
void CandidatePlan::narrow(const Group& group, const Segment& segment, std::uint32_t line,
                           Segment::Line& bits, std::size_t columns) noexcept {
    for (const std::uint16_t column : group.asked(columns))
        if (!(bits &= segment.column(column)[line]).any()) return;
    for (const auto& alternatives : group.alternatives) {
        Segment::Line united{};
        for (const Group& alternative : alternatives) {
            Segment::Line narrowed = bits;
            narrow(alternative, segment, line, narrowed, columns);
            united |= narrowed;
        }
        bits = united;
    }
}

std::size_t CandidatePlan::narrow(const Group& group, const Segment& segment,
                                  std::span<std::uint32_t> slots) noexcept {
    for (const std::uint16_t column : group.asked()) {
        const Segment::Line* const bits = segment.column(column);
        std::size_t kept = 0;
        for (const std::uint32_t slot : slots) {  // without a branch that nobody could foretell
            slots[kept] = slot;
            kept += bits[slot / Segment::Line::kRows].test(slot % Segment::Line::kRows) ? 1 : 0;
        }
        slots = slots.first(kept);
        if (kept == 0) return 0;
    }
    for (const auto& alternatives : group.alternatives) {
        std::array<std::uint32_t, kSlots> united;
        std::array<std::uint32_t, kSlots> some;
        std::array<std::uint32_t, kSlots> both;
        std::size_t count = 0;
        for (const Group& alternative : alternatives) {
            std::copy(slots.begin(), slots.end(), some.begin());
            const std::size_t more = narrow(alternative, segment, {some.data(), slots.size()});
            if (more == 0) continue;
            const auto end = std::set_union(united.begin(), united.begin() + count, some.begin(),
                                            some.begin() + more, both.begin());
            count = static_cast<std::size_t>(end - both.begin());
            std::copy(both.begin(), end, united.begin());
        }
        std::copy_n(united.begin(), count, slots.begin());
        slots = slots.first(count);
    }
    return slots.size();
}

std::size_t CandidatePlan::narrow_rows(const Segment& segment, std::span<const std::uint32_t>& rows,
                                       std::span<std::uint32_t, kSlots> slots) const noexcept {
    const std::uint64_t* const words = segment.column_words(root_.columns[0]);
    std::size_t kept = 0;
    while (!rows.empty() && kept < kSlots) {
        const auto some = rows.first(std::min(rows.size(), kSlots - kept));
        for (const std::uint32_t row : some) {
            const std::uint32_t slot = row - segment.first_row();
            slots[kept] = slot;
            kept += words[slot / 64] >> (slot % 64) & 1;
        }
        rows = rows.subspan(some.size());
    }
    return kept;
}

void CandidatePlan::prefetch(const Segment& segment, std::uint32_t stretch) const noexcept {
    const std::uint32_t first = stretch * Segment::kStretchLines;
    const std::uint32_t end = std::min(segment.lines(), first + Segment::kStretchLines);
    for (std::uint32_t line = first; line < end; ++line)
        prefetch_line(segment, line);
}

void CandidatePlan::prefetch_line(const Segment& segment, std::uint32_t line) const noexcept {
    constexpr std::size_t kColumnsAhead = 2;
    for_each_first([&](const Group& group) {
        for (std::size_t i = 0; i < std::min<std::size_t>(kColumnsAhead, group.column_count); ++i)
            __builtin_prefetch(segment.column(group.columns[i]) + line);
    });
}

}  // namespace vorrim
