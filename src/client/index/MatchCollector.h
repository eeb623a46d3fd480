#pragma once
// Evaluates candidates in the order in which they are offered and collects those that match, up to
// a capacity. Works a few candidates behind, so that the memory of the next ones is on its way
// while one is evaluated; the order of evaluation, and where it stops, are as if it did not.
//
// Threads     Belongs to one search, under the index lock.
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "client/index/FileTable.h"
#include "meta/RecordView.h"
#include "search/Search.h"

namespace vorrim {

class MatchCollector {
public:
    // Collects into `matches`, which is empty, until it has `capacity` (at least 1) records.
    MatchCollector(const FileTable& table, const Search& search, std::size_t capacity,
                   std::vector<RecordView>& matches)
        : table_(table),
          search_(search),
          everything_(node_as<SN_All>(search.root()) != nullptr),
          capacity_(capacity),
          matches_(matches) {}

    // The next candidate. False when the capacity is reached: nothing more is wanted.
    bool offer(std::uint32_t handle) {
        __builtin_prefetch(&table_.entry(handle));
        waiting_[waiting_count_++] = handle;
        return waiting_count_ < waiting_.size() || finish();
    }
    // Evaluates what was offered and still waits. False when the capacity is reached.
    bool finish();

    [[nodiscard]] bool full() const noexcept { return matches_.size() >= capacity_; }
    // The entry of the last match; there is one.
    [[nodiscard]] const FileEntry& last() const noexcept { return table_.entry(last_); }

private:
    const FileTable& table_;
    const Search& search_;
    const bool everything_;
    const std::size_t capacity_;
    std::vector<RecordView>& matches_;
    std::array<std::uint32_t, 16> waiting_;
    std::size_t waiting_count_ = 0;
    std::uint32_t last_ = FileTable::kNone;
};

}  // namespace vorrim
