#pragma once
// Memory for the sources of all entries but the first of each, which stands in its entry.
//
//     page 0        page 1        page 2         4 KiB each, cut into pieces of one size
//     [24|24|24..]  [12|12|12..]  [free    ]     a page of which no piece is in use serves any size
//
// A piece has no header, is at most an eighth larger than asked for, and is named by 32 bits. So
// the sources of files cost their six bytes and little more, whatever number of them each has, and
// also after all of them have grown together. Lists of more than 64 sources are blocks of their
// own. Sixteen pages are allocated together, and freed when none of them is in use, unless there
// are no other free pages.
//
// Threads     None inside; const operations may run side by side.
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/memory/PageHeap.h"

namespace vorrim {

inline constexpr std::size_t kSourceSize = 6;

class SourceStore {
public:
    // How many sources a piece for so many has room for; 0 for none. Follows from the number alone,
    // so that nobody need remember it; a piece may be larger, never smaller.
    [[nodiscard]] static std::uint32_t capacity_for(std::uint32_t sources) noexcept;

    // A piece for so many sources (at least 1). Raises std::bad_alloc, and nothing has changed
    // then.
    [[nodiscard]] std::uint32_t take(std::uint32_t sources);
    [[nodiscard]] std::byte* at(std::uint32_t piece) const noexcept {
        return piece < kFirstBlock ? in_page(piece) : blocks_[piece - kFirstBlock].bytes.get();
    }
    void give_back(std::uint32_t piece) noexcept;

private:
    static constexpr std::size_t kPageBytes = 4096;
    static constexpr std::uint32_t kUnits = kPageBytes / kSourceSize;
    static constexpr std::uint32_t kFirstBlock = 1u << 31;  // pieces from here on are blocks
    static constexpr std::uint32_t kChunkPages = 16;        // allocated together
    static constexpr std::uint32_t kNone = UINT32_MAX;
    static constexpr std::uint16_t kNoUnit = UINT16_MAX;
    static constexpr std::array<std::uint8_t, 20> kCapacities = {
        1, 2, 3, 4, 5, 6, 7, 8, 10, 12, 14, 16, 20, 24, 28, 32, 40, 48, 56, 64};
    static constexpr std::uint32_t kLargestPiece = kCapacities.back();

    using PageBytes = std::array<std::byte, kPageBytes>;
    // Of one class; in the list of its class when it has room, in that of free pages when nothing
    // of it is in use.
    struct Page {
        std::uint32_t next = kNone;
        std::uint32_t previous = kNone;
        std::uint16_t free = kNoUnit;  // first piece given back; its first bytes name the next
        std::uint16_t cut = 0;         // pieces that were ever in use
        std::uint16_t used = 0;        // pieces in use
        std::uint16_t size_class = 0;
    };

    struct Chunk {
        PageHeap::Array<PageBytes> bytes;
        std::uint32_t used = 0;      // pages in use
        std::uint32_t next = kNone;  // of the chunks without memory
    };

    struct Block {
        PageHeap::Array<std::byte> bytes;
        std::size_t size = 0;
    };

    [[nodiscard]] static std::size_t class_of(std::uint32_t sources) noexcept;
    [[nodiscard]] static bool has_room(const Page& page) noexcept;
    [[nodiscard]] std::byte* in_page(std::uint32_t piece) const noexcept {
        const std::uint32_t page = piece / kUnits;
        return chunks_[page / kChunkPages].bytes[page % kChunkPages].data() +
               piece % kUnits * kSourceSize;
    }
    [[nodiscard]] std::uint32_t fresh_page(std::size_t size_class);
    void add_chunk();
    void free_page(std::uint32_t number) noexcept;
    void free_chunk(std::uint32_t number) noexcept;
    void link(std::uint32_t number, std::uint32_t& head) noexcept;
    void unlink(std::uint32_t number, std::uint32_t& head) noexcept;
    [[nodiscard]] std::uint32_t take_block(std::uint32_t sources);

    std::vector<Chunk> chunks_;
    std::vector<Page> pages_;
    std::uint32_t without_memory_ = kNone;  // first chunk
    std::uint32_t allocated_ = 0;           // chunks with memory
    std::uint32_t used_pages_ = 0;
    std::array<std::uint32_t, kCapacities.size()> with_room_ = make_heads();
    std::uint32_t free_pages_ = kNone;
    std::vector<Block> blocks_;
    std::vector<std::uint32_t> free_blocks_;
    std::size_t block_bytes_ = 0;

    static constexpr std::array<std::uint32_t, kCapacities.size()> make_heads() {
        std::array<std::uint32_t, kCapacities.size()> heads{};
        heads.fill(kNone);
        return heads;
    }
};

}  // namespace vorrim
