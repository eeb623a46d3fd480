#include "client/index/SourceList.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace vorrim {
namespace {

// The memory form is the wire form, which is little-endian.
void put_source(std::byte* at, ClientId id, std::uint16_t port) noexcept {
    const std::uint32_t value = id.value();
    std::memcpy(at, &value, sizeof(value));
    std::memcpy(at + sizeof(value), &port, sizeof(port));
}

std::uint32_t identifier_at(const std::byte* at) noexcept {
    std::uint32_t value;
    std::memcpy(&value, at, sizeof(value));
    return value;
}

}  // namespace

std::size_t SourceStore::class_of(std::uint32_t capacity) noexcept {
    return static_cast<std::size_t>(
        std::lower_bound(kCapacities.begin(), kCapacities.end(), capacity) - kCapacities.begin());
}

std::uint32_t SourceStore::capacity_for(std::uint32_t sources) noexcept {
    if (sources <= kCapacities.back()) return kCapacities[class_of(sources)];
    return sources + sources / 8;
}

std::byte* SourceStore::take(std::uint32_t capacity) {
    const std::size_t size = capacity * kSourceSize;
    if (capacity > kCapacities.back())
        return std::make_unique_for_overwrite<std::byte[]>(size).release();
    SizeClass& of_size = classes_[class_of(capacity)];
    if (of_size.free != nullptr) {
        std::byte* const piece = of_size.free;
        std::memcpy(&of_size.free, piece, sizeof(of_size.free));
        return piece;
    }
    if (static_cast<std::size_t>(of_size.end - of_size.fresh) < size) {
        pages_.push_back(std::make_unique_for_overwrite<std::byte[]>(kPageBytes));
        of_size.fresh = pages_.back().get();
        of_size.end = of_size.fresh + kPageBytes;
    }
    return std::exchange(of_size.fresh, of_size.fresh + size);
}

void SourceStore::give_back(std::byte* piece, std::uint32_t capacity) noexcept {
    if (capacity > kCapacities.back()) {
        std::unique_ptr<std::byte[]>{piece};
        return;
    }
    SizeClass& of_size = classes_[class_of(capacity)];
    std::memcpy(piece, &of_size.free, sizeof(of_size.free));
    of_size.free = piece;
}

// Moves the sources into a piece for `capacity`, or inline when that is 1.
void SourceList::move_to(SourceStore& store, std::uint32_t capacity) {
    const std::size_t bytes = count_ * kSourceSize;
    std::byte* const old = capacity_ == 0 ? nullptr : heap_;
    const std::uint32_t old_capacity = capacity_;
    if (capacity <= 1) {
        if (old != nullptr) std::memcpy(inline_, old, bytes);
        capacity_ = 0;
    } else {
        std::byte* const piece = store.take(capacity);
        std::memcpy(piece, data(), bytes);
        heap_ = piece;
        capacity_ = capacity;
    }
    if (old != nullptr) store.give_back(old, old_capacity);
}

void SourceList::append(SourceStore& store, ClientId id, std::uint16_t port) {
    const std::uint32_t room = capacity_ == 0 ? 1 : capacity_;
    if (count_ == room) move_to(store, SourceStore::capacity_for(count_ + 1));
    put_source((capacity_ == 0 ? inline_ : heap_) + count_ * kSourceSize, id, port);
    ++count_;
}

void SourceList::remove(SourceStore& store, ClientId id, std::uint32_t count) {
    std::byte* const sources = capacity_ == 0 ? inline_ : heap_;
    std::uint32_t at = 0;
    while (at < count_ && identifier_at(sources + at * kSourceSize) != id.value())
        ++at;
    // From the first one on, what stays moves down over what goes.
    std::uint32_t kept = at;
    for (; at < count_; ++at) {
        const std::byte* const source = sources + at * kSourceSize;
        if (count > 0 && identifier_at(source) == id.value()) {
            --count;
        } else if (count == 0) {
            std::memmove(sources + kept * kSourceSize, source, (count_ - at) * kSourceSize);
            kept += count_ - at;
            break;
        } else {
            std::memcpy(sources + kept++ * kSourceSize, source, kSourceSize);
        }
    }
    count_ = kept;
    if (capacity_ == 0) return;
    if (count_ <= 1)
        move_to(store, 1);
    else if (count_ < capacity_ / 2)
        move_to(store, SourceStore::capacity_for(count_));
}

void SourceList::clear(SourceStore& store) noexcept {
    if (capacity_ != 0) store.give_back(heap_, capacity_);
    count_ = 0;
    capacity_ = 0;
}

}  // namespace vorrim
