#include "client/index/RowList.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "client/index/row_search.h"

namespace vorrim {
namespace {

using OwnedArray = PageHeap::Array<std::uint32_t>;
using OwnedBlocks = std::unique_ptr<RowBlocks>;

}  // namespace

RowList::RowList(RowList&& other) noexcept : key_(other.key_), count_(other.count_) {
    std::memcpy(&inline_, &other.inline_, sizeof(inline_));
    other.count_ = 0;
}

RowList& RowList::operator=(RowList&& other) noexcept {
    if (this != &other) {
        clear();
        key_ = other.key_;
        count_ = std::exchange(other.count_, 0);
        std::memcpy(&inline_, &other.inline_, sizeof(inline_));
    }
    return *this;
}

void RowList::clear() noexcept {
    switch (form()) {
        case Form::in_header:
            break;
        case Form::array:
            OwnedArray{array()};
            break;
        case Form::blocks:
            OwnedBlocks{blocks()};
            break;
    }
    count_ = 0;
}

void RowList::append(std::uint32_t row) {
    if (count_ < kInlineRows) {
        inline_[count_++] = row;
        return;
    }
    if (form() != Form::blocks && count_ == kArrayRows) array_to_blocks();
    if (form() == Form::blocks) {
        blocks()->append(row);
        ++count_;
        return;
    }
    const std::uint32_t capacity = capacity_for(count_ + 1);
    if (count_ == kInlineRows || capacity_for(count_) != capacity) {
        OwnedArray larger = PageHeap::array<std::uint32_t>(capacity);
        std::copy_n(short_rows().data(), count_, larger.get());
        become(std::move(larger));
    }
    array()[count_++] = row;
}

void RowList::erase(std::uint32_t row) noexcept {
    switch (form()) {
        case Form::in_header:
            if (inline_[0] == row) inline_[0] = inline_[1];
            --count_;
            return;
        case Form::array: {
            std::uint32_t* const end = array() + count_;
            std::uint32_t* const at = array() + find_row(short_rows(), row);
            std::memmove(at, at + 1, static_cast<std::size_t>(end - at - 1) * sizeof(*at));
            shrink_array();
            return;
        }
        case Form::blocks:
            blocks()->erase(row);
            shrink_blocks();
            return;
    }
}

std::uint32_t RowList::rank(std::uint32_t row) const noexcept {
    if (form() == Form::blocks) return blocks()->rank(row);
    return static_cast<std::uint32_t>(find_row(short_rows(), row));
}

std::uint32_t RowList::row_at(std::uint32_t position) const noexcept {
    struct First {
        bool rows(std::span<const std::uint32_t> run) {
            row = run.front();
            return false;
        }
        bool window(std::uint32_t, RowBlocks::Window, std::uint32_t first) {
            row = first;
            return false;
        }
        std::uint32_t row = UINT32_MAX;
    } first;
    if (position == 0) return 0;
    visit(position, first);
    return first.row;
}

// Takes the place of the array, if there was one.
void RowList::become(OwnedArray next) noexcept {
    if (count_ > kInlineRows) OwnedArray{array()};
    place_ = reinterpret_cast<std::uintptr_t>(next.release());
}

// Called with a full array, before the row that no longer fits.
void RowList::array_to_blocks() {
    auto blocks = std::make_unique<RowBlocks>();
    for (const std::uint32_t row : short_rows())
        blocks->append(row);
    become(nullptr);
    place_ = reinterpret_cast<std::uintptr_t>(blocks.release()) + kBlocksAreHere;
}

// One row of the array is gone, which the count has yet to learn.
void RowList::shrink_array() noexcept {
    --count_;
    if (count_ == kInlineRows) {
        const OwnedArray rows{array()};
        std::copy_n(rows.get(), kInlineRows, inline_);
        return;
    }
    const std::uint32_t capacity = capacity_for(count_);
    if (capacity == capacity_for(count_ + 1)) return;
    if (OwnedArray smaller = PageHeap::try_array<std::uint32_t>(capacity)) {
        std::copy_n(array(), count_, smaller.get());
        become(std::move(smaller));
    }
}

// The same for the blocks, which become an array as soon as one takes the rows.
void RowList::shrink_blocks() noexcept {
    --count_;
    if (count_ > kArrayRows) return;
    RowBlocks* const from = blocks();
    const auto copy_rows = [from](std::uint32_t* to) {
        from->for_each([&to](std::uint32_t row) { *to++ = row; });
    };
    if (count_ == kInlineRows) {
        const OwnedBlocks done{from};
        copy_rows(inline_);
    } else if (OwnedArray smaller = PageHeap::try_array<std::uint32_t>(capacity_for(count_))) {
        const OwnedBlocks done{from};
        copy_rows(smaller.get());
        place_ = reinterpret_cast<std::uintptr_t>(smaller.release());
    }
}

bool RowList::prefetch_append(int step) const noexcept {
    switch (form()) {
        case Form::in_header:
            return false;
        case Form::array:
            __builtin_prefetch(array() + count_, 1);
            return false;
        case Form::blocks:
            if (step != 0) return blocks()->prefetch_append(step - 1);
            __builtin_prefetch(blocks(), 1);
            return true;
    }
    return false;
}

bool RowList::prefetch_erase(std::uint32_t row, int step) const noexcept {
    switch (form()) {
        case Form::in_header:
            return false;
        case Form::array:
            if (step != 0) {
                vorrim::prefetch_row(short_rows(), row);
                return false;
            }
            __builtin_prefetch(array(), 1);
            __builtin_prefetch(array() + count_ - 1, 1);
            return true;
        case Form::blocks:
            if (step != 0) return blocks()->prefetch_erase(row, step - 1);
            __builtin_prefetch(blocks());
            return true;
    }
    return false;
}

}  // namespace vorrim
