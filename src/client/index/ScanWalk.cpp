#include "client/index/ScanWalk.h"

#include <algorithm>
#include <bit>

namespace vorrim {
namespace {

template <class Visit>
void for_each_bit(const Segment::Stretch& bits, Visit&& visit) {
    for (std::uint32_t line = 0; line < bits.size(); ++line)
        for (std::uint32_t word = 0; word < bits[line].words.size(); ++word)
            for (std::uint64_t rest = bits[line].words[word]; rest != 0; rest &= rest - 1)
                visit(line * Segment::Line::kRows + word * 64 +
                      static_cast<std::uint32_t>(std::countr_zero(rest)));
}

std::size_t count_bits(const Segment::Stretch& bits) {
    std::size_t count = 0;
    for (const Segment::Line& line : bits)
        for (const std::uint64_t word : line.words)
            count += static_cast<std::size_t>(std::popcount(word));
    return count;
}

}  // namespace

std::optional<ScanWalk::Position> ScanWalk::run(Position from, std::size_t capacity,
                                                std::vector<RecordView>& matches) {
    if (!plan_.admits_all() && mark_candidates() <= sort_up_to_)
        return sort_candidates(from, capacity, matches);
    return walk_buckets(from, capacity, matches);
}

std::size_t ScanWalk::mark_candidates() {
    marked_ = true;
    std::size_t count = 0;
    for (const auto& segment : table_.rows().segments()) {
        first_stretch_.push_back(static_cast<std::uint32_t>(places_.size()));
        const GramFilter::Stretches possible = plan_.stretches(*segment);
        for (std::uint32_t stretch = 0; stretch < segment->stretches(); ++stretch) {
            places_.push_back(kNone);
            if ((possible >> stretch & 1) == 0) continue;
            if (stretch + 1 < segment->stretches()) plan_.prefetch(*segment, stretch + 1);
            Segment::Stretch bits =
                reachable_only_ ? segment->reachable_ones(stretch) : segment->live(stretch);
            plan_.narrow(*segment, stretch, bits);
            const std::size_t here = count_bits(bits);
            if (here == 0) continue;
            count += here;
            places_.back() = static_cast<std::uint32_t>(candidates_.size());
            candidates_.push_back(bits);
        }
    }
    return count;
}

std::optional<ScanWalk::Position> ScanWalk::sort_candidates(
    Position from, std::size_t capacity, std::vector<RecordView>& matches) const {
    std::vector<std::uint32_t> handles;
    for (const auto& segment : table_.rows().segments())
        for (std::uint32_t stretch = 0; stretch < segment->stretches(); ++stretch) {
            const std::uint32_t place = places_[first_stretch_[segment->ordinal] + stretch];
            if (place == kNone) continue;
            for_each_bit(candidates_[place], [&](std::uint32_t bit) {
                handles.push_back(segment->handle_of(stretch * Segment::kStretchRows + bit));
            });
        }

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
        if (bucket < from.bucket) continue;
        if (bucket == from.bucket && table_.bucket(bucket)->rank(entry.row) < from.index) continue;
        if (search_.matches(record)) found.push_back({bucket, entry.row, record});
    }

    const auto in_order = [](const Found& a, const Found& b) {
        return a.bucket != b.bucket ? a.bucket < b.bucket : a.row < b.row;
    };
    const bool enough = found.size() >= capacity;
    const std::size_t taken = enough ? capacity : found.size();
    std::partial_sort(found.begin(), found.begin() + static_cast<std::ptrdiff_t>(taken),
                      found.end(), in_order);
    for (std::size_t i = 0; i < taken; ++i)
        matches.push_back(found[i].record);
    if (!enough) return std::nullopt;
    const Found& last = found[taken - 1];
    return Position{last.bucket, table_.bucket(last.bucket)->rank(last.row) + 1};
}

std::optional<ScanWalk::Position> ScanWalk::walk_buckets(Position from, std::size_t capacity,
                                                         std::vector<RecordView>& matches) {
    MatchCollector collector(table_, search_, capacity, matches);
    collector_ = &collector;
    for (std::uint32_t bucket = table_.next_bucket(from.bucket);
         bucket != SparseBits::kNone && !collector.full(); bucket = table_.next_bucket(bucket + 1))
        table_.bucket(bucket)->visit(bucket == from.bucket ? from.index : 0, *this);
    collector_ = nullptr;
    if (!collector.full()) collector.finish();
    if (!collector.full()) return std::nullopt;
    return behind(collector.last());
}

ScanWalk::Position ScanWalk::behind(const FileEntry& entry) const {
    const std::uint32_t bucket = table_.bucket_of(entry.record.view().hash());
    return {bucket, table_.bucket(bucket)->rank(entry.row) + 1};
}

bool ScanWalk::rows(std::span<const std::uint32_t> run) {
    return std::all_of(run.begin(), run.end(), [this](std::uint32_t each) { return row(each); });
}

bool ScanWalk::window(std::uint32_t base, RowBlocks::Window words, std::uint32_t first) {
    for (std::uint32_t word = (first - base) / 64; word < words.size(); ++word)
        for (std::uint64_t rest = words[word]; rest != 0; rest &= rest - 1) {
            const std::uint32_t each =
                base + word * 64 + static_cast<std::uint32_t>(std::countr_zero(rest));
            if (each >= first && !row(each)) return false;
        }
    return true;
}

bool ScanWalk::row(std::uint32_t row) {
    const Segment& segment = table_.rows().segment_of(row);
    const std::uint32_t slot = segment.slot_of(row);
    if (marked_) {
        const std::uint32_t place =
            places_[first_stretch_[segment.ordinal] + slot / Segment::kStretchRows];
        if (place == kNone) return true;
        const Segment::Stretch& bits = candidates_[place];
        const std::uint32_t bit = slot % Segment::kStretchRows;
        if (!bits[bit / Segment::Line::kRows].test(bit % Segment::Line::kRows)) return true;
    } else if (reachable_only_ && !segment.reachable(slot)) {
        return true;
    }
    return collector_->offer(segment.handle_of(slot));
}

}  // namespace vorrim
