#include "base/memory/PageHeap.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstdint>
#include <sys/mman.h>

#include "base/Annotations.h"
#include "base/kx_critical_section.h"

#if defined(__has_feature)
#define VORRIM_HAS_FEATURE(feature) __has_feature(feature)
#else
#define VORRIM_HAS_FEATURE(feature) 0
#endif

namespace vorrim {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) ||                 \
    VORRIM_HAS_FEATURE(address_sanitizer) || VORRIM_HAS_FEATURE(thread_sanitizer) || \
    VORRIM_HAS_FEATURE(memory_sanitizer)
constexpr bool kWatched = true;
#else
constexpr bool kWatched = false;
#endif
constinit bool apart = kWatched;
constexpr std::align_val_t kApartAlignment{64};

constexpr std::size_t kPageBytes = 4096;
constexpr std::size_t kRegionBytes = std::size_t{2} << 20;  // a large page of x86-64 and AArch64
constexpr std::uint32_t kRegionPages = kRegionBytes / kPageBytes;
constexpr std::uint32_t kSlabPages = 4;
constexpr std::size_t kSlabBytes = kSlabPages * kPageBytes;

// ---- sizes of blocks: by 8 bytes up to 256, by 16 up to 512, then four to a doubling ----

constexpr std::size_t kFine = 256;
constexpr std::size_t kMiddle = 512;
constexpr std::size_t kLargestBlock = 4096;

constexpr std::uint8_t class_of(std::size_t size) {
    constexpr std::size_t kFineClasses = kFine / 8;
    constexpr std::size_t kMiddleClasses = (kMiddle - kFine) / 16;
    constexpr std::size_t kMiddleBits = std::bit_width(kMiddle) - 1;
    if (size == 0) return 0;
    const std::size_t last = size - 1;
    if (size <= kFine) return static_cast<std::uint8_t>(last / 8);
    if (size <= kMiddle) return static_cast<std::uint8_t>(kFineClasses + (last - kFine) / 16);
    const std::size_t bits = std::bit_width(last) - 1;
    return static_cast<std::uint8_t>(kFineClasses + kMiddleClasses + (bits - kMiddleBits) * 4 +
                                     (last >> (bits - 2) & 3));
}
constexpr std::uint32_t kClasses = class_of(kLargestBlock) + 1;

constexpr auto kBlockBytes = [] {
    std::array<std::uint16_t, kClasses> bytes{};
    for (std::size_t size = 8; size <= kLargestBlock; size += 8)
        bytes[class_of(size)] = static_cast<std::uint16_t>(size);
    return bytes;
}();

// ---- regions ----

constexpr std::uint16_t kNoBlock = UINT16_MAX;
constexpr std::uint8_t kRun = UINT8_MAX;

// Of a page; for the pages of a slab or a run that of the first one counts.
struct Page {
    Page* next;  // slabs of one size that have room
    Page* previous;
    std::uint16_t first;  // page of the slab or run that it belongs to
    std::uint16_t used;   // blocks in use; pages of a run
    std::uint16_t cut;    // blocks that were ever in use
    std::uint16_t free;   // first block given back, in eights of bytes from the beginning of the
                          // slab; its own first bytes name the next
};

// At the beginning of its own memory, so that a block tells where its descriptors are.
struct Region {
    Region* next = nullptr;
    Region* previous = nullptr;
    std::uint32_t longest = 0;  // free pages that follow one another
    std::uint32_t used = 0;     // pages
    std::size_t mapped = 0;     // bytes; more than one region's: it is one run
    std::array<std::uint64_t, kRegionPages / 64> taken{};
    std::array<std::uint8_t, kRegionPages> classes;  // of the slab that begins with the page; kRun
    std::array<Page, kRegionPages> pages;

    [[nodiscard]] std::byte* at(std::size_t page) noexcept {
        return reinterpret_cast<std::byte*>(this) + page * kPageBytes;
    }
    [[nodiscard]] bool is_taken(std::uint32_t page) const noexcept {
        return (taken[page / 64] >> (page % 64) & 1) != 0;
    }
    void mark(std::uint32_t first, std::uint32_t count, bool as_taken) noexcept {
        for (std::uint32_t page = first; page < first + count; ++page) {
            const std::uint64_t bit = std::uint64_t{1} << (page % 64);
            as_taken ? taken[page / 64] |= bit : taken[page / 64] &= ~bit;
        }
    }
};
constexpr auto kFirstPage =
    static_cast<std::uint32_t>((sizeof(Region) + kPageBytes - 1) / kPageBytes);
constexpr std::uint32_t kMostPages = kRegionPages - kFirstPage;

Region* region_of(const void* block) noexcept {
    return reinterpret_cast<Region*>(reinterpret_cast<std::uintptr_t>(block) & ~(kRegionBytes - 1));
}
std::uint32_t page_of(const Region* region, const void* block) noexcept {
    return static_cast<std::uint32_t>(
        (reinterpret_cast<std::uintptr_t>(block) - reinterpret_cast<std::uintptr_t>(region)) /
        kPageBytes);
}

// Memory that begins where a large page does; null when there is none.
void* map(std::size_t bytes) noexcept {
    const auto try_map = [](std::size_t size) {
        void* const at =
            ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        return at == MAP_FAILED ? nullptr : static_cast<std::byte*>(at);
    };
    const auto beyond = [](const std::byte* at) {
        return reinterpret_cast<std::uintptr_t>(at) % kRegionBytes;
    };
    std::byte* at = try_map(bytes);
    if (at != nullptr && beyond(at) != 0) {
        ::munmap(at, bytes);
        at = try_map(bytes + kRegionBytes);
        if (at == nullptr) return nullptr;
        const std::size_t before = (kRegionBytes - beyond(at)) % kRegionBytes;
        if (before != 0) ::munmap(at, before);
        ::munmap(at + before + bytes, kRegionBytes - before);
        at += before;
    }
    // A system that has no large pages to give does with small ones.
    if (at != nullptr) ::madvise(at, bytes, MADV_HUGEPAGE);
    return at;
}

Region* new_region() noexcept {
    void* const memory = map(kRegionBytes);
    if (memory == nullptr) return nullptr;
    auto* const region = ::new (memory) Region;
    region->mapped = kRegionBytes;
    region->longest = kMostPages;
    region->mark(0, kFirstPage, true);
    return region;
}

class Regions {
public:
    // The first of so many pages, 1 to kMostPages; null when there is no memory.
    Page* take(std::uint32_t count) noexcept {
        const kx_guard hold(lock_);
        std::uint32_t longest = count;
        while (longest <= kMostPages && by_longest_[longest] == nullptr)
            ++longest;
        Region* region = nullptr;
        if (longest <= kMostPages) {
            region = by_longest_[longest];
            unlink(*region);
        } else {
            region = reserve_.exchange(nullptr);
            if (region == nullptr) region = new_region();
            if (region == nullptr) return nullptr;
        }
        const std::uint32_t first = find(*region, count);
        region->mark(first, count, true);
        region->used += count;
        link(*region);
        for (std::uint32_t page = first; page < first + count; ++page)
            region->pages[page].first = static_cast<std::uint16_t>(first);
        return &region->pages[first];
    }

    void give_back(Page& pages, std::uint32_t count) noexcept {
        const kx_guard hold(lock_);
        Region& region = *region_of(&pages);
        unlink(region);
        region.mark(pages.first, count, false);
        region.used -= count;
        if (region.used != 0) return link(region);
        Region* none = nullptr;
        region.longest = kMostPages;
        if (!reserve_.compare_exchange_strong(none, &region)) ::munmap(&region, kRegionBytes);
    }

    void prepare() noexcept {
        if (roomy_.load(std::memory_order_relaxed) != 0 ||
            reserve_.load(std::memory_order_relaxed) != nullptr)
            return;
        Region* const region = new_region();
        Region* none = nullptr;
        if (region != nullptr && !reserve_.compare_exchange_strong(none, region))
            ::munmap(region, kRegionBytes);
    }

private:
    static std::uint32_t find(const Region& region, std::uint32_t count) noexcept {
        std::uint32_t run = 0;
        std::uint32_t page = kFirstPage;
        for (; run < count; ++page)
            run = region.is_taken(page) ? 0 : run + 1;
        return page - count;
    }

    void link(Region& region) noexcept REQUIRES(lock_) {
        region.longest = 0;
        std::uint32_t run = 0;
        for (std::uint32_t page = kFirstPage; page < kRegionPages; ++page) {
            run = region.is_taken(page) ? 0 : run + 1;
            region.longest = std::max(region.longest, run);
        }
        Region*& head = by_longest_[region.longest];
        region.previous = nullptr;
        region.next = head;
        if (head != nullptr) head->previous = &region;
        head = &region;
        if (region.longest >= kRoomy) ++roomy_;
    }
    void unlink(Region& region) noexcept REQUIRES(lock_) {
        if (region.longest >= kRoomy) --roomy_;
        (region.previous == nullptr ? by_longest_[region.longest] : region.previous->next) =
            region.next;
        if (region.next != nullptr) region.next->previous = region.previous;
    }

    kx_critical_section lock_;
    std::array<Region*, kMostPages + 1> by_longest_ GUARDED_BY(lock_){};
    // Regions with room for what is likely to be taken next: while there are any, none is needed
    // in reserve.
    static constexpr std::uint32_t kRoomy = 64;
    std::atomic<std::uint32_t> roomy_{0};
    std::atomic<Region*> reserve_{nullptr};
};

constinit Regions regions;

// ---- blocks ----

class Slabs {
public:
    void* take(std::uint8_t size_class) noexcept {
        const kx_guard hold(lock_);
        if (with_room_ == nullptr) {
            Page* const fresh = regions.take(kSlabPages);
            if (fresh == nullptr) return nullptr;
            region_of(fresh)->classes[fresh->first] = size_class;
            fresh->used = fresh->cut = 0;
            fresh->free = kNoBlock;
            link(*fresh);
        }
        Page& slab = *with_room_;
        std::byte* block = beginning(slab);
        if (slab.free != kNoBlock) {
            block += std::size_t{slab.free} * 8;
            __builtin_memcpy(&slab.free, block, sizeof(slab.free));
        } else {
            block += std::size_t{slab.cut++} * kBlockBytes[size_class];
        }
        ++slab.used;
        if (!has_room(slab)) unlink(slab);
        return block;
    }

    void give_back(Page& slab, std::byte* block) noexcept {
        const kx_guard hold(lock_);
        const bool had_room = has_room(slab);
        if (--slab.used == 0) {
            unlink(slab);
            return regions.give_back(slab, kSlabPages);
        }
        __builtin_memcpy(block, &slab.free, sizeof(slab.free));
        slab.free = static_cast<std::uint16_t>((block - beginning(slab)) / 8);
        if (!had_room) link(slab);
    }

private:
    static std::byte* beginning(Page& slab) noexcept { return region_of(&slab)->at(slab.first); }
    static bool has_room(const Page& slab) noexcept {
        const std::size_t block = kBlockBytes[region_of(&slab)->classes[slab.first]];
        return slab.free != kNoBlock || (slab.cut + 1u) * block <= kSlabBytes;
    }
    void link(Page& slab) noexcept REQUIRES(lock_) {
        slab.previous = nullptr;
        slab.next = with_room_;
        if (with_room_ != nullptr) with_room_->previous = &slab;
        with_room_ = &slab;
    }
    void unlink(Page& slab) noexcept REQUIRES(lock_) {
        (slab.previous == nullptr ? with_room_ : slab.previous->next) = slab.next;
        if (slab.next != nullptr) slab.next->previous = slab.previous;
    }

    kx_critical_section lock_;
    Page* with_room_ GUARDED_BY(lock_) = nullptr;
};

constinit std::array<Slabs, kClasses> slabs;

void* take_run(std::size_t size) noexcept {
    if (size > PTRDIFF_MAX) return nullptr;
    const std::size_t count = (size + kPageBytes - 1) / kPageBytes;
    if (count <= kMostPages) {
        Page* const run = regions.take(static_cast<std::uint32_t>(count));
        if (run == nullptr) return nullptr;
        region_of(run)->classes[run->first] = kRun;
        run->used = static_cast<std::uint16_t>(count);
        return region_of(run)->at(run->first);
    }
    const std::size_t bytes = kFirstPage * kPageBytes + count * kPageBytes;
    void* const memory = map(bytes);
    if (memory == nullptr) return nullptr;
    auto* const region = ::new (memory) Region;
    region->mapped = bytes;
    return region->at(kFirstPage);
}

}  // namespace

void* PageHeap::try_take(std::size_t size) noexcept {
    if (apart) return ::operator new(size, kApartAlignment, std::nothrow);
    return size <= kLargestBlock ? slabs[class_of(size)].take(class_of(size)) : take_run(size);
}

void PageHeap::give_back(void* block) noexcept {
    if (block == nullptr) return;
    if (apart) return ::operator delete(block, kApartAlignment);
    Region* const region = region_of(block);
    if (region->mapped > kRegionBytes) {
        ::munmap(region, region->mapped);
        return;
    }
    Page& first = region->pages[region->pages[page_of(region, block)].first];
    const std::uint8_t size_class = region->classes[first.first];
    if (size_class == kRun) return regions.give_back(first, first.used);
    slabs[size_class].give_back(first, static_cast<std::byte*>(block));
}

void PageHeap::prepare() noexcept {
    if (!apart) regions.prepare();
}

void PageHeap::keep_blocks_apart(bool blocks_apart) noexcept {
    apart = blocks_apart;
}

}  // namespace vorrim
