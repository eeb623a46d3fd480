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

std::uint32_t SourceStore::piece_units(std::size_t size_class) noexcept {
    return kCapacities[size_class] * static_cast<std::uint32_t>(kSourceSize / kUnit);
}

bool SourceStore::has_room(const Page& page) noexcept {
    return page.free != kNoUnit || (page.cut + 1u) * piece_units(page.size_class) <= kUnits;
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
        piece += page.cut++ * piece_units(size_class);
    }
    ++page.used;
    if (!has_room(page)) unlink(number, head);
    return piece;
}

void SourceStore::give_back(std::uint32_t piece, std::uint32_t sources) noexcept {
    if (sources > kLargestPiece) {
        blocks_[piece].reset();
        block_bytes_ -= capacity_for(sources) * kSourceSize;
        free_blocks_.push_back(piece);
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
    page.next = std::exchange(free_pages_, number);
}

std::uint32_t SourceStore::fresh_page(std::size_t size_class) {
    if (free_pages_ == kNone) {
        constexpr std::size_t kMostPages = kNone / kUnits;
        const auto first = static_cast<std::uint32_t>(pages_.size());
        if (first + kChunkPages > kMostPages) throw std::bad_alloc();
        chunks_.push_back(std::make_unique_for_overwrite<PageBytes[]>(kChunkPages));
        pages_.resize(first + kChunkPages);
        for (std::uint32_t number = first + kChunkPages; number-- > first;)
            pages_[number].next = std::exchange(free_pages_, number);
    }
    const std::uint32_t number = free_pages_;
    free_pages_ = pages_[number].next;
    pages_[number] = Page{};
    pages_[number].size_class = static_cast<std::uint16_t>(size_class);
    return number;
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
    auto block = std::make_unique_for_overwrite<std::byte[]>(size);
    if (free_blocks_.empty()) {
        blocks_.emplace_back();
        free_blocks_.reserve(blocks_.capacity());  // giving back needs no memory
        free_blocks_.push_back(static_cast<std::uint32_t>(blocks_.size() - 1));
    }
    const std::uint32_t piece = free_blocks_.back();
    free_blocks_.pop_back();
    blocks_[piece] = std::move(block);
    block_bytes_ += size;
    return piece;
}

std::size_t SourceStore::heap_bytes() const noexcept {
    return chunks_.size() * kChunkPages * kPageBytes + pages_.capacity() * sizeof(Page) +
           block_bytes_;
}

}  // namespace vorrim
