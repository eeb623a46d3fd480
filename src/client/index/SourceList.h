#pragma once
// The sources of one entry, in order of publication and in the form in which they travel:
//
//     [ identifier u32 | port u16 ]     [ identifier u32 | port u16 ] ...        6 bytes each
//       the first, in the list itself     the further ones, in a piece of a SourceStore
//
// Threads     None inside; const operations may run side by side.
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "client/index/SourceStore.h"
#include "meta/ClientId.h"

namespace vorrim {

class SourceList {
public:
    SourceList() noexcept = default;
    // Without the store a list cannot free itself: clear it first.
    SourceList(const SourceList&) = delete;
    SourceList& operator=(const SourceList&) = delete;

    [[nodiscard]] std::uint32_t size() const noexcept { return count_; }
    // The sources in wire form: the first, when there is one, and the others.
    [[nodiscard]] std::span<const std::byte> first() const noexcept {
        return std::span(first_).first(count_ == 0 ? 0 : kSourceSize);
    }
    [[nodiscard]] std::span<const std::byte> further(const SourceStore& store) const noexcept {
        if (count_ < 2) return {};
        return {store.at(piece_), (count_ - 1) * kSourceSize};
    }

    // Raises std::bad_alloc, and has changed nothing then.
    void append(SourceStore& store, ClientId id, std::uint16_t port);
    // Removes the first `count` sources with this identifier, of which there are as many. Without
    // memory for a smaller piece the others keep the one they have.
    void remove(SourceStore& store, ClientId id, std::uint32_t count) noexcept;
    void clear(SourceStore& store) noexcept;

    void prefetch(const SourceStore& store) const noexcept {
        if (count_ > 1) __builtin_prefetch(store.at(piece_));
    }

private:
    // Moves the further sources into a piece for as many as `further`; copies those that stay.
    void resize(SourceStore& store, std::uint32_t further);

    std::uint32_t count_ = 0;
    std::uint32_t piece_ = 0;  // when there are two sources or more
    std::array<std::byte, kSourceSize> first_{};
};

static_assert(sizeof(SourceList) == 16);

}  // namespace vorrim
