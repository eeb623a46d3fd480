#include "client/index/EntrySlab.h"

#include <new>
#include <utility>

namespace vorrim {

std::uint32_t EntrySlab::add() {
    if (with_room_ == kNone) link(fresh_chunk());
    const std::uint32_t number = with_room_;
    Chunk& chunk = chunks_[number];
    std::uint32_t handle = number * kChunk;
    if (chunk.free != kNone) {
        handle += std::exchange(chunk.free, entries_[number][chunk.free].row);
    } else {
        handle += chunk.cut++;
    }
    if (++chunk.used == kChunk) unlink(number);
    ++size_;
    return handle;
}

void EntrySlab::remove(std::uint32_t handle) noexcept {
    const std::uint32_t number = handle / kChunk;
    Chunk& chunk = chunks_[number];
    FileEntry& entry = (*this)[handle];
    entry.record = FrozenRecord();
    entry.reachable = 0;
    entry.row = std::exchange(chunk.free, handle % kChunk);
    if (chunk.used-- == kChunk) link(number);
    if (--size_ == 0) {
        *this = EntrySlab();
    } else if (chunk.used == 0 && (chunk.next != kNone || chunk.previous != kNone)) {
        free_chunk(number);
    }
}

std::uint32_t EntrySlab::fresh_chunk() {
    auto entries = PageArray<FileEntry>::make(kChunk);
    if (without_memory_ == kNone) {
        if (entries_.size() == kNone / kChunk) throw std::bad_alloc();
        chunks_.resize(entries_.size() + 1);
        entries_.emplace_back();
        without_memory_ = static_cast<std::uint32_t>(entries_.size() - 1);
    }
    const std::uint32_t number = std::exchange(without_memory_, chunks_[without_memory_].next);
    entries_[number] = std::move(entries);
    chunks_[number] = Chunk{};
    return number;
}

void EntrySlab::free_chunk(std::uint32_t number) noexcept {
    unlink(number);
    entries_[number].reset();
    chunks_[number].next = std::exchange(without_memory_, number);
}

void EntrySlab::link(std::uint32_t number) noexcept {
    chunks_[number].previous = kNone;
    chunks_[number].next = with_room_;
    if (with_room_ != kNone) chunks_[with_room_].previous = number;
    with_room_ = number;
}

void EntrySlab::unlink(std::uint32_t number) noexcept {
    const Chunk& chunk = chunks_[number];
    (chunk.previous == kNone ? with_room_ : chunks_[chunk.previous].next) = chunk.next;
    if (chunk.next != kNone) chunks_[chunk.next].previous = chunk.previous;
}

}  // namespace vorrim
