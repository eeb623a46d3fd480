#pragma once
// Pointers in a row that grows by a fixed step, or not at all.
//
// Ownership: kx_grow_array<T*> borrows, kx_grow_array<std::unique_ptr<T>> owns.
// Threads: none inside.

#include <cstddef>
#include <utility>
#include <vector>

#include "base/kx_err.h"

namespace vorrim {

template <class Pointer>
class kx_grow_array final {
public:
    // `growth` 0: never more than `capacity`.
    kx_grow_array(std::size_t capacity, std::size_t growth) : capacity_(capacity), growth_(growth) {
        entries_.reserve(capacity_);
    }

    // Raises "kx_grow_array out of entries" when the array is full and does not grow.
    const Pointer& add(Pointer entry) {
        if (entries_.size() == capacity_) {
            if (growth_ == 0) kx_error("kx_grow_array out of entries");
            entries_.reserve(capacity_ + growth_);
            capacity_ += growth_;
        }
        entries_.push_back(std::move(entry));
        return entries_.back();
    }

    // The caller keeps the index below `count`.
    [[nodiscard]] const Pointer& operator[](std::size_t index) const { return entries_[index]; }
    [[nodiscard]] std::size_t count() const noexcept { return entries_.size(); }
    [[nodiscard]] std::size_t capacity() const noexcept { return capacity_; }
    [[nodiscard]] auto begin() const noexcept { return entries_.begin(); }
    [[nodiscard]] auto end() const noexcept { return entries_.end(); }

private:
    std::vector<Pointer> entries_;
    std::size_t capacity_;
    std::size_t growth_;
};

}  // namespace vorrim
