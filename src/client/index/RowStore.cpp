#include "client/index/RowStore.h"

#include <algorithm>
#include <new>

namespace vorrim {

std::uint32_t RowStore::append(std::uint32_t handle, const TextSignature& signature,
                               bool reachable) {
    if (exhausted()) throw std::bad_alloc();
    const std::uint32_t window = next_row_ / Segment::kRows;
    if (windows_.empty()) first_window_ = window;
    if (window - first_window_ >= windows_.size()) {
        windows_.resize(window - first_window_ + 1, nullptr);
        Segment* const before = segments_.empty() ? nullptr : segments_.back().get();
        segments_.push_back(std::make_unique<Segment>(next_row_));
        segments_.back()->ordinal = static_cast<std::uint32_t>(segments_.size() - 1);
        windows_.back() = segments_.back().get();
        if (before != nullptr) tidy(*before);  // it was spared while it was the last
    }
    windows_.back()->append(handle, signature, reachable);
    signature.for_each_column([&](std::size_t column) { ++weights_[column]; });
    ++live_count_;
    return next_row_++;
}

void RowStore::remove(std::uint32_t row) {
    Segment& segment = *windows_[row / Segment::kRows - first_window_];
    segment.kill(segment.slot_of(row));
    --live_count_;
    if (closed(segment)) tidy(segment);
}

void RowStore::set_reachable(std::uint32_t row, bool reachable) noexcept {
    Segment& segment = *windows_[row / Segment::kRows - first_window_];
    segment.set_reachable(segment.slot_of(row), reachable);
}

// No more rows are appended to it: the last segment takes them all.
bool RowStore::closed(const Segment& segment) const noexcept {
    return segment.ordinal + 1 < segments_.size() || segment.full() || !segment.dense();
}

void RowStore::tidy(Segment& segment) {
    const std::size_t ordinal = segment.ordinal;
    const std::uint32_t live = segment.live_count();
    if (live == 0) return drop(ordinal);
    if (segment.lines() > 1) {
        if (live <= segment.slots() / 2) pack(ordinal, false);
        return;
    }
    if (live > kSmall) return;
    // The smaller of the neighbours with which one segment is enough.
    const auto together = [&](std::size_t neighbour) {
        if (neighbour >= segments_.size() || !closed(*segments_[neighbour])) return UINT32_MAX;
        const std::uint32_t sum = live + segments_[neighbour]->live_count();
        return sum <= Segment::kRows ? sum : UINT32_MAX;
    };
    const std::uint32_t with_next = together(ordinal + 1);
    const std::uint32_t with_previous = ordinal == 0 ? UINT32_MAX : together(ordinal - 1);
    if (std::min(with_next, with_previous) == UINT32_MAX) return;
    pack(with_next <= with_previous ? ordinal : ordinal - 1, true);
}

void RowStore::pack(std::size_t ordinal, bool with_successor) {
    const Segment* const successor = with_successor ? segments_[ordinal + 1].get() : nullptr;
    auto packed = segments_[ordinal]->packed(successor);
    packed->ordinal = static_cast<std::uint32_t>(ordinal);
    point_windows(*packed, packed.get());
    segments_[ordinal] = std::move(packed);
    if (with_successor) {
        segments_.erase(segments_.begin() + static_cast<std::ptrdiff_t>(ordinal) + 1);
        number_from(ordinal + 1);
    }
}

void RowStore::drop(std::size_t ordinal) {
    point_windows(*segments_[ordinal], nullptr);
    segments_.erase(segments_.begin() + static_cast<std::ptrdiff_t>(ordinal));
    number_from(ordinal);
    if (segments_.empty()) {
        windows_.clear();
        return;
    }
    const std::uint32_t dead = segments_.front()->first_window() - first_window_;
    if (dead <= windows_.size() / 2) return;
    windows_.erase(windows_.begin(), windows_.begin() + dead);
    windows_.shrink_to_fit();
    first_window_ += dead;
}

void RowStore::point_windows(const Segment& segment, Segment* to) noexcept {
    for (std::uint32_t window = segment.first_window(); window < segment.window_end(); ++window)
        windows_[window - first_window_] = to;
}

void RowStore::number_from(std::size_t ordinal) noexcept {
    for (; ordinal < segments_.size(); ++ordinal)
        segments_[ordinal]->ordinal = static_cast<std::uint32_t>(ordinal);
}

RowStore::NewNumbers::NewNumbers(const RowStore& store) : store_(store) {
    below_.reserve(store.segments().size());
    std::uint32_t below = 0;
    for (const auto& segment : store.segments()) {
        below_.push_back(below);
        below += segment->live_count();
    }
}

std::uint32_t RowStore::NewNumbers::operator()(std::uint32_t row) const noexcept {
    const Segment& segment = store_.segment_of(row);
    return below_[segment.ordinal] + segment.live_below(segment.slot_of(row));
}

std::size_t RowStore::heap_bytes() const noexcept {
    std::size_t bytes = windows_.capacity() * sizeof(Segment*) +
                        segments_.capacity() * sizeof(std::unique_ptr<Segment>);
    for (const auto& segment : segments_)
        bytes += sizeof(Segment) + segment->heap_bytes();
    return bytes;
}

}  // namespace vorrim
