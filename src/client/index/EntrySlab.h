#pragma once
// The entries of the index, 48 bytes each, named by a 32-bit handle that stays the same for the
// life of the entry.
//
//     handle   [chunk: 22 | place: 10]      chunk   1024 entries, allocated together
//
// Freed entries are used again, last freed first within a chunk. A chunk of which none is in use is
// freed, unless it is the only one with room.
//
// Threads     None inside; const operations may run side by side.
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/memory/PageHeap.h"
#include "client/index/SourceList.h"
#include "meta/FrozenRecord.h"

namespace vorrim {

// One distinct file. While it exists it has at least one source and its record, the first
// publisher's, whose availability tag equals the number of sources. The hash is the record's: who
// asks for the sources waits for no record.
struct FileEntry {
    FileHash hash;
    SourceList sources;
    FrozenRecord record;
    std::uint32_t row = 0;
    std::uint32_t reachable = 0;  // sources with an identifier above the low range

    // Fetches all of the entry.
    void prefetch() const noexcept {
        __builtin_prefetch(this, 1);
        __builtin_prefetch(&reachable, 1);
    }
};

static_assert(sizeof(FileEntry) == 48);

class EntrySlab {
public:
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;

    // A fresh entry. Raises std::bad_alloc, and has added nothing then.
    [[nodiscard]] std::uint32_t add();
    // Frees an entry; its sources are cleared before.
    void remove(std::uint32_t handle) noexcept;

    [[nodiscard]] FileEntry& operator[](std::uint32_t handle) noexcept {
        return entries_[handle / kChunk][handle % kChunk];
    }
    [[nodiscard]] const FileEntry& operator[](std::uint32_t handle) const noexcept {
        return entries_[handle / kChunk][handle % kChunk];
    }
    [[nodiscard]] std::uint32_t size() const noexcept { return size_; }
    // Calls visit(entry) for every entry that has its record.
    template <class Visit>
    void for_each(Visit&& visit) {
        for (std::size_t number = 0; number < entries_.size(); ++number)
            if (entries_[number])  // or it has no memory
                for (FileEntry& entry : std::span(entries_[number].data(), chunks_[number].cut))
                    if (!entry.record.empty()) visit(entry);
    }

private:
    static constexpr std::uint32_t kChunk = 1024;

    // In the list of those with room, or in that of those without memory, or full.
    struct Chunk {
        std::uint32_t next = kNone;
        std::uint32_t previous = kNone;
        std::uint32_t free = kNone;  // first freed place; the row of a free entry names the next
        std::uint16_t cut = 0;       // places that were ever in use
        std::uint16_t used = 0;      // places in use
    };

    [[nodiscard]] std::uint32_t fresh_chunk();
    void link(std::uint32_t number) noexcept;
    void unlink(std::uint32_t number) noexcept;
    void free_chunk(std::uint32_t number) noexcept;

    std::vector<PageArray<FileEntry>> entries_;  // by chunk
    std::vector<Chunk> chunks_;
    std::uint32_t with_room_ = kNone;
    std::uint32_t without_memory_ = kNone;
    std::uint32_t size_ = 0;
};

}  // namespace vorrim
