#pragma once
// Memory for what there are millions of: blocks packed closely into large pages.
//
//     region   2 MiB, one large page     [ descriptors | page | page | page | ... ]   4 KiB each
//     slab     4 pages                   [block|block|block|block|block|block ...]    of one size
//     run      pages that follow one another, for a block of more than 4 KiB
//
// The index of a million files is spread over hundreds of megabytes and read at random, so that
// with small pages the way to a page costs as much as what stands on it (the tables of pages do not
// fit the caches either). Blocks have no header and are at most 16 bytes larger than asked for, up
// to 512, and a quarter, up to 4 KiB. A slab of which no block is in use serves any size, and a
// region of which no page is in use goes back to the system, but for one.
//
// Under the sanitizers every block has memory of its own, so that they see each.
//
// Ownership   Of raw memory: whoever takes a block gives it back. PageArray owns objects.
// Threads     Any. There is a lock for each size of block, and inside it that of the regions, under
//             which memory is taken from the system and given back; nothing else is called.
// Errors      Without memory nothing is taken: null, or std::bad_alloc.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace vorrim {

class PageHeap {
public:
    PageHeap() = delete;

    // At least `size` bytes, aligned for whatever needs up to 8, or, of more than 4 KiB, up to a
    // page (64 when blocks are apart). Null when there is no memory.
    [[nodiscard]] static void* try_take(std::size_t size) noexcept;
    // Raises std::bad_alloc.
    [[nodiscard]] static void* take(std::size_t size) {
        void* const block = try_take(size);
        if (block == nullptr) throw std::bad_alloc();
        return block;
    }
    // Null is allowed.
    static void give_back(void* block) noexcept;

    // Sees to it that there is room for some blocks, or a region in reserve, already cleared by the
    // system. That takes a tenth of a millisecond now and then, for which nobody should have to
    // wait behind a lock. Without memory it does nothing.
    static void prepare() noexcept;

    // Whether every block has memory of its own, by operator new: for tests in which memory runs
    // out. Nothing may have been taken before.
    static void keep_blocks_apart(bool blocks_apart) noexcept;

    // For std::unique_ptr to what needs no destructor.
    struct Free {
        void operator()(void* block) const noexcept { give_back(block); }
    };
    template <class T>
    using Array = std::unique_ptr<T[], Free>;
    // Values that are not initialised. Null when there is no memory.
    template <class T>
    [[nodiscard]] static Array<T> try_array(std::size_t count) noexcept {
        static_assert(std::is_trivially_destructible_v<T>);
        return Array<T>(static_cast<T*>(try_take(count * sizeof(T))));
    }
    template <class T>
    [[nodiscard]] static Array<T> array(std::size_t count) {
        Array<T> values = try_array<T>(count);
        if (!values) throw std::bad_alloc();
        return values;
    }
};

// Objects in one block of the PageHeap. Moves, never copies.
template <class T>
class PageArray {
public:
    PageArray() noexcept = default;
    PageArray(PageArray&& other) noexcept
        : first_(std::exchange(other.first_, nullptr)), size_(std::exchange(other.size_, 0)) {}
    PageArray& operator=(PageArray&& other) noexcept {
        std::swap(first_, other.first_);
        std::swap(size_, other.size_);
        other.reset();
        return *this;
    }
    ~PageArray() { reset(); }

    // Default objects; nothing when there is no memory.
    [[nodiscard]] static PageArray try_make(std::uint32_t size) noexcept {
        PageArray made;
        if (size == 0) return made;
        made.first_ = static_cast<T*>(PageHeap::try_take(size * sizeof(T)));
        if (made.first_ == nullptr) return made;
        std::uninitialized_value_construct_n(made.first_, size);
        made.size_ = size;
        return made;
    }
    // Raises std::bad_alloc.
    [[nodiscard]] static PageArray make(std::uint32_t size) {
        PageArray made = try_make(size);
        if (made.size_ != size) throw std::bad_alloc();
        return made;
    }
    void reset() noexcept {
        std::destroy_n(first_, size_);
        PageHeap::give_back(std::exchange(first_, nullptr));
        size_ = 0;
    }

    explicit operator bool() const noexcept { return first_ != nullptr; }
    [[nodiscard]] std::uint32_t size() const noexcept { return size_; }
    [[nodiscard]] T* data() const noexcept { return first_; }
    [[nodiscard]] T& operator[](std::size_t at) const noexcept { return first_[at]; }
    [[nodiscard]] T* begin() const noexcept { return first_; }
    [[nodiscard]] T* end() const noexcept { return first_ + size_; }

private:
    T* first_ = nullptr;
    std::uint32_t size_ = 0;
};

}  // namespace vorrim
