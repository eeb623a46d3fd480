#include "client/index/SourceList.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "base/file/primitives.h"

namespace vorrim {
namespace {

// The memory form is the wire form.
void put_source(std::byte* at, ClientId id, std::uint16_t port) noexcept {
    store_32(at, id.value());
    store_16(at + sizeof(std::uint32_t), port);
}

}  // namespace

void SourceList::resize(SourceStore& store, std::uint32_t further) {
    const std::uint32_t before = count_ == 0 ? 0 : count_ - 1;
    if (SourceStore::capacity_for(before) == SourceStore::capacity_for(further)) return;
    std::uint32_t piece = 0;
    if (further != 0) {
        piece = store.take(further);
        if (before != 0)
            std::memcpy(store.at(piece), store.at(piece_), std::min(before, further) * kSourceSize);
    }
    if (before != 0) store.give_back(piece_);
    piece_ = piece;
}

void SourceList::append(SourceStore& store, ClientId id, std::uint16_t port) {
    if (count_ == 0) {
        put_source(first_.data(), id, port);
    } else {
        resize(store, count_);
        put_source(store.at(piece_) + (count_ - 1) * kSourceSize, id, port);
    }
    ++count_;
}

void SourceList::remove(SourceStore& store, ClientId id, std::uint32_t count) noexcept {
    std::byte* const further = count_ < 2 ? nullptr : store.at(piece_);
    const auto at = [&](std::uint32_t index) {
        return index == 0 ? first_.data() : further + (index - 1) * kSourceSize;
    };
    // What stays moves down over what goes.
    std::uint32_t kept = 0;
    for (std::uint32_t index = 0; index < count_; ++index) {
        if (count > 0 && load_32(at(index)) == id.value()) {
            --count;
        } else if (count == 0 && kept > 0) {
            std::memmove(at(kept), at(index), (count_ - index) * kSourceSize);
            kept += count_ - index;
            break;
        } else {
            std::memmove(at(kept++), at(index), kSourceSize);
        }
    }
    try {
        resize(store, kept == 0 ? 0 : kept - 1);
    } catch (const std::bad_alloc&) {
        // They stay in the larger piece.
    }
    count_ = kept;
}

void SourceList::clear(SourceStore& store) noexcept {
    if (count_ > 1) store.give_back(piece_);
    count_ = 0;
}

}  // namespace vorrim
