#pragma once
// The entries of the index, 32 bytes each, named by a 32-bit handle that stays the same for the
// life of the entry. Chunks of a thousand; freed entries are used again, last freed first.
//
// Threads     None inside; const operations may run side by side.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "client/index/SourceList.h"
#include "meta/FrozenRecord.h"

namespace vorrim {

// One distinct file. While it exists it has at least one source and its record, the first
// publisher's, whose availability tag equals the number of sources.
struct FileEntry {
    FrozenRecord record;
    SourceList sources;
    std::uint32_t row = 0;
    std::uint32_t reachable = 0;  // sources with an identifier above the low range

    // Fetches the beginning of the record, once the entry itself is at hand.
    void prefetch_record() const noexcept {
        constexpr std::size_t kLine = 64;
        const std::byte* const bytes = record.bytes().data();
        __builtin_prefetch(bytes);
        __builtin_prefetch(bytes + kLine);
    }
};

static_assert(sizeof(FileEntry) == 32);

class EntrySlab {
public:
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;

    // A fresh entry; never fails short of memory.
    [[nodiscard]] std::uint32_t add();
    // Frees an entry; its sources are cleared before.
    void remove(std::uint32_t handle) noexcept;

    [[nodiscard]] FileEntry& operator[](std::uint32_t handle) noexcept {
        return chunks_[handle / kChunk][handle % kChunk];
    }
    [[nodiscard]] const FileEntry& operator[](std::uint32_t handle) const noexcept {
        return chunks_[handle / kChunk][handle % kChunk];
    }
    [[nodiscard]] std::uint32_t size() const noexcept { return used_ - free_count_; }
    [[nodiscard]] std::size_t heap_bytes() const noexcept {
        return chunks_.size() * kChunk * sizeof(FileEntry);
    }

private:
    static constexpr std::uint32_t kChunk = 1024;

    std::vector<std::unique_ptr<FileEntry[]>> chunks_;
    std::uint32_t used_ = 0;
    std::uint32_t free_count_ = 0;
    std::uint32_t free_ = kNone;  // the row of a free entry names the next
};

}  // namespace vorrim
