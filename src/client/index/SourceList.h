#pragma once
// The sources of one entry, in order of publication and in the form in which they travel:
//
//     [ identifier u32 | port u16 ] [ identifier u32 | port u16 ] ...        6 bytes each
//
// The first one stands in the list itself. More stand in a piece of a SourceStore, which cuts them
// from pages by size, without a header each; beyond 64 sources in a block of their own.
//
// Threads     None inside; const operations may run side by side.
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "meta/ClientId.h"

namespace vorrim {

inline constexpr std::size_t kSourceSize = 6;

// Memory for source lists. Pieces given back are used again for lists of the same size.
class SourceStore {
public:
    SourceStore() = default;

    // The smallest capacity (in sources) on offer for this many.
    [[nodiscard]] static std::uint32_t capacity_for(std::uint32_t sources) noexcept;
    // A piece for `capacity` sources, which capacity_for returned.
    [[nodiscard]] std::byte* take(std::uint32_t capacity);
    void give_back(std::byte* piece, std::uint32_t capacity) noexcept;

    [[nodiscard]] std::size_t heap_bytes() const noexcept { return pages_.size() * kPageBytes; }

private:
    static constexpr std::size_t kPageBytes = 16 * 1024;
    static constexpr std::array<std::uint8_t, 19> kCapacities = {
        2, 3, 4, 5, 6, 7, 8, 10, 12, 14, 16, 20, 24, 28, 32, 40, 48, 56, 64};
    struct SizeClass {
        std::byte* free = nullptr;   // first piece given back; its first bytes name the next
        std::byte* fresh = nullptr;  // rest of the current page
        std::byte* end = nullptr;
    };

    [[nodiscard]] static std::size_t class_of(std::uint32_t capacity) noexcept;

    std::array<SizeClass, kCapacities.size()> classes_;
    std::vector<std::unique_ptr<std::byte[]>> pages_;
};

class SourceList {
public:
    SourceList() noexcept : inline_{} {}
    // Without the store a list cannot free itself: clear it first.
    SourceList(const SourceList&) = delete;
    SourceList& operator=(const SourceList&) = delete;

    [[nodiscard]] std::uint32_t size() const noexcept { return count_; }
    // The sources in wire form.
    [[nodiscard]] std::span<const std::byte> wire() const noexcept {
        return {data(), count_ * kSourceSize};
    }

    void append(SourceStore& store, ClientId id, std::uint16_t port);
    // Removes the first `count` sources with this identifier, of which there are as many.
    void remove(SourceStore& store, ClientId id, std::uint32_t count);
    void clear(SourceStore& store) noexcept;

    void prefetch() const noexcept {
        if (capacity_ != 0) __builtin_prefetch(heap_);
    }

private:
    [[nodiscard]] const std::byte* data() const noexcept {
        return capacity_ == 0 ? inline_ : heap_;
    }
    void move_to(SourceStore& store, std::uint32_t capacity);

    std::uint32_t count_ = 0;
    std::uint32_t capacity_ = 0;  // of the piece; 0: none, the source is inline
    union {
        std::byte inline_[8];
        std::byte* heap_;
    };
};

}  // namespace vorrim
