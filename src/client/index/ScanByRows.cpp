#include "client/index/ScanByRows.h"

#include <algorithm>
#include <bit>

namespace vorrim {
namespace {

constexpr std::size_t kGathered = 256;
constexpr BucketPlace kFirst{0, 0};
constexpr std::uint64_t kAllLines = (std::uint64_t{1} << Segment::kStretchLines) - 1;

}  // namespace

ScanByRows::Look ScanByRows::look() {
    const auto& segments = task_.table.rows().segments();
    const auto at = std::partition_point(
        segments.begin(), segments.end(),
        [this](const auto& segment) { return segment->rows_end() <= next_row_; });
    if (at == segments.end()) {
        if (!evaluate_gathered()) return Look::paused;
        kept_.looked_at = next_row_;
        return Look::through;
    }
    if (!look_at(**at)) return Look::paused;
    next_row_ = (*at)->rows_end();
    rows_seen_ += (*at)->live_count();
    return Look::more;
}

bool ScanByRows::look_at(const Segment& segment) {
    const CandidatePlan& plan = task_.plan;
    const std::uint64_t possible =
        plan.admits_all() ? ~std::uint64_t{0} : segment.lines_of(plan.parts(segment));
    std::uint32_t slot = segment.slot_from(next_row_);
    for (std::uint32_t stretch = slot / Segment::kStretchRows; slot < segment.used();
         slot = ++stretch * Segment::kStretchRows) {
        const std::uint64_t lines = possible >> (stretch * Segment::kStretchLines) & kAllLines;
        if (lines == 0) continue;
        if (task_.budget.spent()) {
            if (evaluate_gathered()) kept_.looked_at = segment.row_of(slot);
            return false;
        }
        if (!gather(segment, lines, slot)) return false;
    }
    return true;
}

bool ScanByRows::gather(const Segment& segment, std::uint64_t lines, std::uint32_t first) {
    const std::uint32_t stretch = first / Segment::kStretchRows;
    Segment::Stretch bits =
        task_.reachable_only ? segment.reachable_ones(stretch) : segment.live(stretch);
    for (std::uint32_t line = 0; line < bits.size(); ++line)
        if ((lines >> line & 1) == 0) bits[line] = {};
    if (!task_.plan.admits_all()) {
        if (stretch + 1 < segment.stretches()) task_.plan.prefetch(segment, stretch + 1);
        task_.plan.narrow(segment, stretch, bits);
        task_.budget.charge(task_.plan.stretch_cost());
    }
    const std::uint32_t base = stretch * Segment::kStretchRows;
    for (std::uint32_t word = (first - base) / 64; word < Segment::kStretchRows / 64; ++word) {
        for (std::uint64_t rest = bits[word / 8].words[word % 8]; rest != 0; rest &= rest - 1) {
            const std::uint32_t slot =
                base + word * 64 + static_cast<std::uint32_t>(std::countr_zero(rest));
            if (slot >= first) gathered_.push_back({segment.record_of(slot), segment.row_of(slot)});
        }
        if (gathered_.size() >= kGathered && !evaluate_gathered()) return false;
    }
    return true;
}

bool ScanByRows::evaluate_gathered() {
    constexpr std::size_t kRecordsAhead = 24;
    for (std::size_t i = 0; i < gathered_.size(); ++i) {
        if (i > 0 && task_.budget.spent()) {
            kept_.looked_at = gathered_[i].row;
            return false;
        }
        if (i + kRecordsAhead < gathered_.size()) gathered_[i + kRecordsAhead].record.prefetch();
        const RecordView record = gathered_[i].record.view();
        task_.budget.charge(record_cost_);
        ++candidates_seen_;
        const auto place = [&] {
            return BucketPlace{task_.table.bucket_of(record.hash()), gathered_[i].row};
        };
        if (from_ > kFirst && place() < from_) continue;
        task_.budget.charge(task_.evaluator.surcharge(record));
        if (task_.evaluator.matches(record)) keep(place());
    }
    gathered_.clear();
    return true;
}

void ScanByRows::keep(BucketPlace match) {
    ++matches_seen_;
    std::vector<BucketPlace>& matches = kept_.matches;
    if (matches.size() == task_.collector.wanted()) {
        kept_.dropped = true;
        if (match > matches.front()) return;
        std::pop_heap(matches.begin(), matches.end());
        matches.pop_back();
    }
    matches.push_back(match);
    std::push_heap(matches.begin(), matches.end());
}

// Two that were renumbered to the same row are one that is gone and its successor, which is
// evaluated as every other.
std::optional<BucketPlace> ScanByRows::hand_over() {
    std::vector<BucketPlace> matches = std::move(kept_.matches);
    kept_.matches.clear();
    std::sort(matches.begin(), matches.end());
    matches.erase(std::unique(matches.begin(), matches.end()), matches.end());
    for (auto match = matches.begin(); match != matches.end(); ++match) {
        if (match != matches.begin() && task_.budget.spent()) {
            (void)task_.collector.finish();
            kept_.matches.assign(match, matches.end());
            std::make_heap(kept_.matches.begin(), kept_.matches.end());
            return *match;
        }
        const std::optional<RecordPlace> record = task_.table.rows().find(match->row);
        if (!record) continue;
        if (task_.table.bucket_of(record->view().hash()) != match->bucket) continue;
        if (!task_.collector.offer({*record, match->row})) return std::nullopt;
    }
    if (!task_.collector.finish() || !kept_.dropped) return std::nullopt;
    kept_.looked_at = 0;
    kept_.dropped = false;
    return BucketPlace{matches.back().bucket, matches.back().row + 1};
}

}  // namespace vorrim
