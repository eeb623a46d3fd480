#include "client/index/ScanWalk.h"

#include <algorithm>
#include <array>

#include "search/required_sides.h"

namespace vorrim {

std::optional<BucketPlace> ScanWalk::run(BucketPlace from) {
    bucket_ = from.bucket;
    if (state_.way == ScanState::Way::none) choose();
    for (;;) {
        const ScanState::Way way = state_.way;
        const std::optional<BucketPlace> next =
            way == ScanState::Way::rows ? walk_rows(from) : walk_buckets(from);
        if (!next || way == state_.way) return next;
        from = *next;
    }
}

// ---- the way ----

void ScanWalk::choose() {
    using Way = ScanState::Way;
    state_.way = Way::buckets;
    state_.settled = task_.plan.admits_all() && may_report(*task_.search.root());
    if (state_.settled) return;
    if (task_.reachable_only || !task_.plan.admits_all())
        state_.density =
            (candidates_of_sample(CandidatePlan::kColumns) + 0.5) / std::max(1.0, rows_of_sample());
    if (cost_by_buckets(state_.density, state_.density) > cost_by_rows())
        state_.way = Way::rows;
    else if (!task_.plan.admits_all())
        choose_columns();
}

// A record that is evaluated in vain costs little when others match: where many do, fewer columns
// are asked than dismiss most.
void ScanWalk::choose_columns() {
    constexpr double kInVain = 1.5;
    const double fewest = candidates_of_sample(CandidatePlan::kColumns);
    for (state_.columns = 2; state_.columns < CandidatePlan::kColumns; ++state_.columns)
        if (candidates_of_sample(state_.columns) <= kInVain * fewest) return;
}

void ScanWalk::take(ScanState::Way way) {
    state_.way = way;
    state_.settled = way == ScanState::Way::rows;
    state_.rows = state_.candidates = state_.matches = 0;
    kept_.looked_at = 0;
    kept_.matches.clear();
    kept_.dropped = false;
}

// Calls visit(segment, stretch) for one stretch of each of some segments.
template <class Visit>
void ScanWalk::sample(Visit&& visit) const {
    constexpr std::size_t kMostStretches = 4;
    const auto& segments = task_.table.rows().segments();
    const std::size_t stretches = std::min(kMostStretches, segments.size());
    for (std::size_t i = 0; i < stretches; ++i) {
        const Segment& segment = *segments[(2 * i + 1) * segments.size() / (2 * stretches)];
        visit(segment, static_cast<std::uint32_t>(i * segment.stretches() / stretches));
    }
}

double ScanWalk::rows_of_sample() const {
    int rows = 0;
    sample([&](const Segment& segment, std::uint32_t stretch) {
        for (const Segment::Line& line : segment.live(stretch))
            rows += line.count();
    });
    return rows;
}

// What the asker and so many columns leave of that.
double ScanWalk::candidates_of_sample(std::size_t columns) const {
    int left = 0;
    sample([&](const Segment& segment, std::uint32_t stretch) {
        const std::uint64_t possible = segment.lines_of(task_.plan.parts(segment));
        Segment::Stretch bits =
            task_.reachable_only ? segment.reachable_ones(stretch) : segment.live(stretch);
        std::uint32_t line = stretch * Segment::kStretchLines;
        for (Segment::Line& of_line : bits) {
            if ((possible >> line & 1) != 0 && of_line.any()) {
                task_.plan.narrow(segment, line, of_line, columns);
                left += of_line.count();
            }
            ++line;
        }
    });
    return left;
}

double ScanWalk::cost_by_buckets(double candidates, double matches) const {
    const FileTable& table = task_.table;
    const auto all = static_cast<double>(table.size());
    const double share = 1 - static_cast<double>(bucket_) / static_cast<double>(table.buckets());
    const double rows =
        std::min(all * share, static_cast<double>(task_.collector.wanted()) / matches);
    double marking = 0;
    if (!task_.plan.admits_all())
        marking = std::min(rows, all / Segment::Line::kRows) * task_.plan.line_cost(state_.columns);
    return marking + rows * (1 + candidates * task_.record_cost());
}

double ScanWalk::cost_by_rows() const {
    const auto rows = static_cast<double>(task_.table.size());
    const double stretches =
        task_.plan.admits_all() ? 0 : rows / Segment::kStretchRows * task_.plan.stretch_cost();
    return stretches + rows * state_.density * task_.row_record_cost(state_.density);
}

// ---- by rows ----

std::optional<BucketPlace> ScanWalk::walk_rows(BucketPlace from) {
    ScanByRows scan(task_, task_.row_record_cost(state_.density), from, kept_);
    const double rows_before = state_.rows;
    const double candidates_before = state_.candidates;
    const double matches_before = state_.matches;
    for (;;) {
        const ScanByRows::Look look = scan.look();
        if (look == ScanByRows::Look::through) return scan.hand_over();
        state_.rows = rows_before + static_cast<double>(scan.rows_seen());
        state_.candidates = candidates_before + static_cast<double>(scan.candidates_seen());
        state_.matches = matches_before + static_cast<double>(scan.matches_seen());
        if (look == ScanByRows::Look::paused) return from;
        if (state_.settled) continue;
        state_.density = std::max(state_.density, state_.candidates / state_.rows);
        const double left = 1 - state_.rows / static_cast<double>(task_.table.size());
        const double matches = (state_.matches + 1) / state_.rows;
        if (cost_by_buckets(state_.density, matches) * 2 > cost_by_rows() * left) continue;
        take(ScanState::Way::buckets);
        return from;
    }
}

// ---- by buckets ----

std::optional<BucketPlace> ScanWalk::walk_buckets(BucketPlace from) {
    const FileTable& table = task_.table;
    if (!task_.plan.admits_all()) {
        const auto lines = static_cast<double>(table.size()) / Segment::Line::kRows;
        const double rows = static_cast<double>(task_.collector.wanted()) / state_.density;
        marks_.emplace(table.rows(), task_.plan, state_.columns,
                       rows > lines / 2 ? Segment::kStretchLines : 1, task_.budget);
    }
    wanted_ = task_.collector.wanted();
    next_.reset();
    for (bucket_ = table.next_bucket(from.bucket); bucket_ != SparseBits::kNone;
         bucket_ = table.next_bucket(bucket_ + 1)) {
        const RowList& list = *table.bucket(bucket_);
        if (!list.visit(bucket_ == from.bucket ? list.rank(from.row) : 0, *this)) break;
    }
    note_progress();
    return task_.collector.full() ? std::nullopt : next_;
}

bool ScanWalk::window(std::uint32_t base, RowBlocks::Window words, std::uint32_t first) {
    return RowBlocks::visit_window(base, words, first, [this](auto run) { return rows(run); });
}

bool ScanWalk::rows(std::span<const std::uint32_t> run) {
    for (const std::uint32_t row : run) {
        if (task_.budget.spent()) {
            next_ = {bucket_, row};
            return false;
        }
        ++rows_;
        task_.budget.charge(1);
        const Segment& segment = task_.table.rows().segment_of(row);
        const std::uint32_t slot = segment.slot_of(row);
        if (marks_ && !marks_->has(segment, slot)) continue;
        if (task_.reachable_only && !segment.reachable(slot)) continue;
        ++candidates_;
        if (!task_.collector.offer({segment.record_of(slot), row})) return false;
    }
    if (state_.settled || rows_ < rows_to_judge_) return true;
    note_progress();
    if (task_.collector.full()) return false;
    const double cost =
        cost_by_buckets(state_.candidates / state_.rows, (state_.matches + 1) / state_.rows);
    if (cost <= cost_by_rows()) return true;
    next_ = {bucket_, run.back() + 1};
    take(ScanState::Way::rows);
    return false;
}

void ScanWalk::note_progress() {
    if (!task_.collector.full()) (void)task_.collector.finish();
    state_.rows += rows_;
    state_.candidates += candidates_;
    state_.matches += static_cast<double>(wanted_ - task_.collector.wanted());
    rows_ = candidates_ = 0;
    wanted_ = task_.collector.wanted();
}

}  // namespace vorrim
