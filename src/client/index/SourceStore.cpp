#include "client/index/SourceStore.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>
#include <utility>

namespace vorrim {

std::size_t SourceStore::class_of(std::uint32_t sources) noexcept {
    return static_cast<std::size_t>(
        std::lower_bound(kCapacities.begin(), kCapacities.end(), sources) - kCapacities.begin());
}

bool SourceStore::has_room(const Page& page) noexcept {
    return page.free != kNoUnit || (page.cut + 1u) * kCapacities[page.size_class] <= kUnits;
}

std::uint32_t SourceStore::capacity_for(std::uint32_t sources) noexcept {
    if (sources == 0) return 0;
    if (sources <= kLargestPiece) return kCapacities[class_of(sources)];
    const std::uint32_t step = std::bit_floor(sources) / 8;
    return (sources + step - 1) / step * step;
}

std::uint32_t SourceStore::take(std::uint32_t sources) {
    if (sources > kLargestPiece) return take_block(sources);
    const std::size_t size_class = class_of(sources);
    std::uint32_t& head = with_room_[size_class];
    if (head == kNone) link(fresh_page(size_class), head);
    const std::uint32_t number = head;
    Page& page = pages_[number];
    std::uint32_t piece = number * kUnits;
    if (page.free != kNoUnit) {
        piece += page.free;
        std::memcpy(&page.free, in_page(piece), sizeof(page.free));
    } else {
        piece += page.cut++ * kCapacities[size_class];
    }
    ++page.used;
    if (!has_room(page)) unlink(number, head);
    return piece;
}

void SourceStore::give_back(std::uint32_t piece) noexcept {
    if (piece >= kFirstBlock) {
        Block& block = blocks_[piece - kFirstBlock];
        block_bytes_ -= block.size;
        block = Block{};
        free_blocks_.push_back(piece);
        if (block_bytes_ != 0) return;
        blocks_.clear();
        blocks_.shrink_to_fit();
        free_blocks_.clear();
        free_blocks_.shrink_to_fit();
        return;
    }
    const std::uint32_t number = piece / kUnits;
    Page& page = pages_[number];
    std::uint32_t& head = with_room_[page.size_class];
    if (!has_room(page)) link(number, head);
    std::memcpy(in_page(piece), &page.free, sizeof(page.free));
    page.free = static_cast<std::uint16_t>(piece % kUnits);
    if (--page.used != 0) return;
    unlink(number, head);
    free_page(number);
}

std::uint32_t SourceStore::fresh_page(std::size_t size_class) {
    if (free_pages_ == kNone) add_chunk();
    const std::uint32_t number = free_pages_;
    unlink(number, free_pages_);
    pages_[number] = Page{};
    pages_[number].size_class = static_cast<std::uint16_t>(size_class);
    ++chunks_[number / kChunkPages].used;
    ++used_pages_;
    return number;
}

void SourceStore::add_chunk() {
    auto bytes = PageHeap::array<PageBytes>(kChunkPages);
    if (without_memory_ == kNone) {
        constexpr std::size_t kMostPages = kFirstBlock / kUnits;
        const std::size_t pages = (chunks_.size() + 1) * kChunkPages;
        if (pages > kMostPages) throw std::bad_alloc();
        pages_.resize(pages);
        chunks_.emplace_back();
        without_memory_ = static_cast<std::uint32_t>(chunks_.size() - 1);
    }
    const std::uint32_t number = std::exchange(without_memory_, chunks_[without_memory_].next);
    chunks_[number].bytes = std::move(bytes);
    ++allocated_;
    for (std::uint32_t page = (number + 1) * kChunkPages; page-- > number * kChunkPages;)
        link(page, free_pages_);
}

void SourceStore::free_page(std::uint32_t number) noexcept {
    link(number, free_pages_);
    if (--used_pages_ == 0) {
        chunks_.clear();
        chunks_.shrink_to_fit();
        pages_.clear();
        pages_.shrink_to_fit();
        free_pages_ = without_memory_ = kNone;
        allocated_ = 0;
        return;
    }
    const std::uint32_t chunk = number / kChunkPages;
    const std::uint32_t free_pages = allocated_ * kChunkPages - used_pages_;
    if (--chunks_[chunk].used == 0 && free_pages > kChunkPages) free_chunk(chunk);
}

void SourceStore::free_chunk(std::uint32_t number) noexcept {
    for (std::uint32_t page = number * kChunkPages; page < (number + 1) * kChunkPages; ++page)
        unlink(page, free_pages_);
    chunks_[number].bytes.reset();
    chunks_[number].next = std::exchange(without_memory_, number);
    --allocated_;
}

void SourceStore::link(std::uint32_t number, std::uint32_t& head) noexcept {
    pages_[number].previous = kNone;
    pages_[number].next = head;
    if (head != kNone) pages_[head].previous = number;
    head = number;
}

void SourceStore::unlink(std::uint32_t number, std::uint32_t& head) noexcept {
    const Page& page = pages_[number];
    (page.previous == kNone ? head : pages_[page.previous].next) = page.next;
    if (page.next != kNone) pages_[page.next].previous = page.previous;
}

std::uint32_t SourceStore::take_block(std::uint32_t sources) {
    const std::size_t size = capacity_for(sources) * kSourceSize;
    auto bytes = PageHeap::array<std::byte>(size);
    if (free_blocks_.empty()) {
        if (blocks_.size() == blocks_.capacity()) {
            const std::size_t room = blocks_.size() * 2 + 1;
            free_blocks_.reserve(room);  // giving back needs no memory
            blocks_.reserve(room);
        }
        free_blocks_.push_back(kFirstBlock + static_cast<std::uint32_t>(blocks_.size()));
        blocks_.emplace_back();
    }
    const std::uint32_t piece = free_blocks_.back();
    free_blocks_.pop_back();
    blocks_[piece - kFirstBlock] = {std::move(bytes), size};
    block_bytes_ += size;
    return piece;
}

}  // namespace vorrim
