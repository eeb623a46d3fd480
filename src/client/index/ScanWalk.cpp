#include "client/index/ScanWalk.h"

#include <algorithm>
#include <array>
#include <bit>

namespace vorrim {

std::optional<ScanWalk::Place> ScanWalk::run(Place from) {
    using Way = ScanState::Way;
    if (plan_.admits_all()) state_.way = Way::unmarked;
    if (state_.way != Way::unmarked &&
        !state_.marks.complete(table_.rows(), plan_, reachable_only_, budget_))
        return from;
    if (state_.way == Way::marking) {
        if (state_.marks.count() <= sort_up_to_) {
            sort_marked(from);
            return std::nullopt;
        }
        state_.way = Way::walking;
    }
    return walk_buckets(from);
}

void ScanWalk::sort_marked(Place from) {
    std::vector<std::uint32_t> handles;
    state_.marks.for_each(table_.rows(), [&](const Segment& segment, std::uint32_t slot) {
        if (!segment.is_live(slot) || (reachable_only_ && !segment.reachable(slot))) return;
        handles.push_back(segment.handle_of(slot));
    });

    constexpr std::size_t kEntriesAhead = 16;
    constexpr std::size_t kRecordsAhead = 8;
    std::vector<Found> found;
    for (std::size_t i = 0; i < handles.size(); ++i) {
        if (i + kEntriesAhead < handles.size())
            __builtin_prefetch(&table_.entry(handles[i + kEntriesAhead]));
        if (i + kRecordsAhead < handles.size())
            table_.entry(handles[i + kRecordsAhead]).prefetch_record();
        const FileEntry& entry = table_.entry(handles[i]);
        const RecordView record = entry.record.view();
        const std::uint32_t bucket = table_.bucket_of(record.hash());
        if (bucket < from.bucket || (bucket == from.bucket && entry.row < from.row)) continue;
        if (search_.matches(record)) found.push_back({bucket, entry.row, handles[i], record});
    }

    const auto in_order = [](const Found& a, const Found& b) {
        return a.bucket != b.bucket ? a.bucket < b.bucket : a.row < b.row;
    };
    const auto taken =
        found.begin() + static_cast<std::ptrdiff_t>(std::min(found.size(), collector_.wanted()));
    std::partial_sort(found.begin(), taken, found.end(), in_order);
    for (auto each = found.begin(); each != taken; ++each)
        collector_.take(each->handle, each->record);
}

std::optional<ScanWalk::Place> ScanWalk::walk_buckets(Place from) {
    next_.reset();
    for (bucket_ = table_.next_bucket(from.bucket); bucket_ != SparseBits::kNone;
         bucket_ = table_.next_bucket(bucket_ + 1)) {
        const RowList& list = *table_.bucket(bucket_);
        if (!list.visit(bucket_ == from.bucket ? list.rank(from.row) : 0, *this)) break;
    }
    if (!collector_.full()) collector_.finish();
    return collector_.full() ? std::nullopt : next_;
}

bool ScanWalk::window(std::uint32_t base, RowBlocks::Window words, std::uint32_t first) {
    for (std::uint32_t word = (first - base) / 64; word < words.size(); ++word) {
        std::array<std::uint32_t, 64> run;
        std::size_t count = 0;
        for (std::uint64_t rest = words[word]; rest != 0; rest &= rest - 1) {
            const std::uint32_t row =
                base + word * 64 + static_cast<std::uint32_t>(std::countr_zero(rest));
            if (row >= first) run[count++] = row;
        }
        if (!rows({run.data(), count})) return false;
    }
    return true;
}

bool ScanWalk::rows(std::span<const std::uint32_t> run) {
    const std::uint32_t row_cost =
        state_.way == ScanState::Way::unmarked ? kRowCost + plan_.row_cost() : kRowCost;
    while (!run.empty()) {
        if (budget_.spent()) {
            next_ = {bucket_, run.front()};
            return false;
        }
        const Segment& segment = table_.rows().segment_of(run.front());
        std::array<std::uint32_t, CandidatePlan::kSlots> slots;
        std::size_t count = 0;
        for (; count < std::min(run.size(), slots.size()) && run[count] < segment.rows_end();
             ++count)
            slots[count] = segment.slot_of(run[count]);
        for (const std::uint32_t slot : may_match(segment, {slots.data(), count})) {
            if (budget_.spent()) {
                next_ = {bucket_, segment.row_of(slot)};
                return false;
            }
            if (!collector_.offer(segment.handle_of(slot))) return false;
        }
        budget_.charge(row_cost * static_cast<std::uint32_t>(count));
        run = run.subspan(count);
    }
    return true;
}

// Moves those of some slots that may match to the front.
std::span<const std::uint32_t> ScanWalk::may_match(const Segment& segment,
                                                   std::span<std::uint32_t> slots) {
    if (state_.way == ScanState::Way::walking) {
        const auto end = std::remove_if(slots.begin(), slots.end(), [&](std::uint32_t slot) {
            return !state_.marks.has(segment, slot);
        });
        slots = slots.first(static_cast<std::size_t>(end - slots.begin()));
    } else if (!plan_.admits_all()) {
        slots = slots.first(plan_.narrow(segment, slots));
    }
    return reachable_only_ ? slots.first(segment.reachable_of(slots)) : slots;
}

}  // namespace vorrim
