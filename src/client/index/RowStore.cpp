#include "client/index/RowStore.h"

#include <algorithm>
#include <iterator>
#include <new>

namespace vorrim {

std::uint32_t RowStore::append(RecordPlace record, const TextMarks& marks, bool reachable) {
    if (exhausted()) throw std::bad_alloc();
    const std::uint32_t window = window_of(next_row_);
    if (windows_.empty()) first_window_ = window;
    // A window may be there without its segment, when memory ran out between the two.
    if (window - first_window_ >= windows_.size() || windows_.back() == nullptr) {
        windows_.resize(window - first_window_ + 1, nullptr);
        Segment* const before = segments_.empty() ? nullptr : segments_.back().get();
        segments_.push_back(std::make_unique<Segment>(next_row_, segment_rows()));
        segments_.back()->ordinal = static_cast<std::uint32_t>(segments_.size() - 1);
        windows_.back() = segments_.back().get();
        if (before != nullptr) tidy(*before);  // it was spared while it was the last
    }
    windows_.back()->append(record, marks, reachable);
    if (next_row_ % kWeighed == 0)
        marks.signature.for_each_column([&](std::size_t column) { ++weights_[column]; });
    ++live_count_;
    go_on_packing();
    return next_row_++;
}

void RowStore::remove(std::uint32_t row) noexcept {
    Segment& segment = segment_with(row);
    segment.kill(segment.slot_of(row));
    --live_count_;
    if (closed(segment)) tidy(segment);
    go_on_packing();
    if (live_count_ != 0 || segments_.empty()) return;
    // Only the last one is left, which was spared: it goes too, and the rest of its window.
    drop(segments_.size() - 1);
    const std::uint32_t window_end = (window_of(next_row_) + 1) * segment_rows();
    next_row_ = std::min(row_limit_, window_end);
}

void RowStore::set_reachable(std::uint32_t row, bool reachable) noexcept {
    Segment& segment = segment_with(row);
    segment.set_reachable(segment.slot_of(row), reachable);
}

std::optional<RecordPlace> RowStore::find(std::uint32_t row) const noexcept {
    const std::size_t window = std::size_t{window_of(row)} - first_window_;
    if (window >= windows_.size() || windows_[window] == nullptr) return std::nullopt;
    const Segment& segment = *windows_[window];
    const std::uint32_t slot = segment.slot_from(row);
    if (slot >= segment.used() || segment.row_of(slot) != row || !segment.is_live(slot))
        return std::nullopt;
    return segment.record_of(slot);
}

RowStore RowStore::renumbered() const {
    RowStore store(row_limit_, segment_rows());
    for_each_live([&](const Segment& segment, std::uint32_t slot) {
        const RecordPlace record = segment.record_of(slot);
        store.append(record, TextMarks(record.view()), segment.reachable(slot));
    });
    return store;
}

// No more rows are appended to it: the last segment takes them all.
bool RowStore::closed(const Segment& segment) const noexcept {
    return segment.ordinal + 1 < segments_.size() || segment.full() || !segment.dense();
}

void RowStore::tidy(Segment& segment) noexcept {
    const std::size_t ordinal = segment.ordinal;
    const std::uint32_t live = segment.live_count();
    if (live == 0) return drop(ordinal);
    if (packing_) return;  // one after the other
    if (segment.lines() > 1) {
        if (live <= segment.slots() / 2) pack(ordinal, false);
        return;
    }
    if (live > kSmall) return;
    // The smaller of the neighbours with which one segment is enough.
    const auto together = [&](std::size_t neighbour) {
        if (neighbour >= segments_.size() || !closed(*segments_[neighbour])) return UINT32_MAX;
        const std::uint32_t sum = live + segments_[neighbour]->live_count();
        return sum <= segment_rows() ? sum : UINT32_MAX;
    };
    const std::uint32_t with_next = together(ordinal + 1);
    const std::uint32_t with_previous = ordinal == 0 ? UINT32_MAX : together(ordinal - 1);
    if (std::min(with_next, with_previous) == UINT32_MAX) return;
    pack(with_next <= with_previous ? ordinal : ordinal - 1, true);
}

void RowStore::pack(std::size_t ordinal, bool with_successor) noexcept {
    Segment* const successor = with_successor ? segments_[ordinal + 1].get() : nullptr;
    try {
        packing_.emplace(*segments_[ordinal], successor);
    } catch (const std::bad_alloc&) {
        // The next row that leaves tries again.
    }
}

// A step for every so many rows that come or go: whoever waits for the index waits for one step.
void RowStore::go_on_packing() noexcept {
    constexpr unsigned kRowsOfAStep = 64;
    if (!packing_ || ++rows_since_step_ < kRowsOfAStep) return;
    rows_since_step_ = 0;
    if (packing_->step()) return;
    const std::size_t ordinal = packing_->segment().ordinal;
    const bool two = packing_->successor() != nullptr;
    std::unique_ptr<Segment> packed = packing_->finish();
    packing_.reset();
    packed->ordinal = static_cast<std::uint32_t>(ordinal);
    point_windows(*packed, packed.get());
    segments_[ordinal] = std::move(packed);
    if (two) {
        segments_.erase(segments_.begin() + static_cast<std::ptrdiff_t>(ordinal) + 1);
        number_from(ordinal + 1);
    }
    // Others may have waited for it.
    for (std::size_t next = segments_.size(); next-- > 0 && !packing_;)
        if (closed(*segments_[next])) tidy(*segments_[next]);
}

void RowStore::drop(std::size_t ordinal) noexcept {
    if (packing_ && packing_->concerns(*segments_[ordinal])) packing_.reset();
    point_windows(*segments_[ordinal], nullptr);
    segments_.erase(segments_.begin() + static_cast<std::ptrdiff_t>(ordinal));
    number_from(ordinal);
    if (segments_.empty()) {
        windows_.clear();
        windows_.shrink_to_fit();
        segments_.clear();
        segments_.shrink_to_fit();
        return;
    }
    const std::uint32_t dead = window_of(segments_.front()->first_row()) - first_window_;
    if (dead <= windows_.size() / 2) return;
    windows_.erase(windows_.begin(), windows_.begin() + dead);
    windows_.shrink_to_fit();
    first_window_ += dead;
}

void RowStore::point_windows(const Segment& segment, Segment* to) noexcept {
    const std::uint32_t last = window_of(segment.rows_end() - 1);
    for (std::uint32_t window = window_of(segment.first_row()); window <= last; ++window)
        windows_[window - first_window_] = to;
}

void RowStore::number_from(std::size_t ordinal) noexcept {
    for (; ordinal < segments_.size(); ++ordinal)
        segments_[ordinal]->ordinal = static_cast<std::uint32_t>(ordinal);
}

RowStore::NewNumbers::NewNumbers(const RowStore& store) : store_(store) {
    std::uint32_t below = 0;
    for (const auto& segment : store.segments()) {
        first_word_.push_back(below_.size());
        for (std::uint32_t word = 0; word < segment->slots() / 64; ++word) {
            below_.push_back(below);
            below += static_cast<std::uint32_t>(std::popcount(segment->live_word(word)));
        }
    }
}

std::uint32_t RowStore::NewNumbers::of_any(std::uint32_t row) const noexcept {
    const auto& segments = store_.segments();
    const auto after =
        std::partition_point(segments.begin(), segments.end(),
                             [row](const auto& segment) { return segment->first_row() <= row; });
    if (after == segments.begin()) return 0;
    const Segment& segment = **std::prev(after);
    const std::uint32_t slot = segment.slot_from(row);
    if (slot < segment.used()) return below(segment, slot);
    return after == segments.end() ? store_.size() : below(**after, 0);
}

std::uint32_t RowStore::NewNumbers::below(const Segment& segment,
                                          std::uint32_t slot) const noexcept {
    const std::uint64_t lower = (std::uint64_t{1} << (slot % 64)) - 1;
    return below_[first_word_[segment.ordinal] + slot / 64] +
           static_cast<std::uint32_t>(std::popcount(segment.live_word(slot / 64) & lower));
}

}  // namespace vorrim
