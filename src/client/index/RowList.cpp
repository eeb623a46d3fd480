#include "client/index/RowList.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace vorrim {
namespace {

using OwnedArray = std::unique_ptr<std::uint32_t[]>;

// Arrays grow by a quarter. With the leading capacity and the allocator's own word they fill whole
// 16-byte units when the capacity is 1 more than a multiple of 4.
constexpr std::uint32_t room_for(std::uint32_t rows) {
    return (rows + rows / 4 + 2) / 4 * 4 + 1;
}

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
            OwnedArray{array_};
            break;
        case Form::blocks:
            std::unique_ptr<RowBlocks>{blocks_};
            break;
    }
    count_ = 0;
}

void RowList::append(std::uint32_t row) {
    if (count_ < kInlineRows) {
        inline_[count_] = row;
    } else if (count_ < kArrayRows) {
        if (count_ == kInlineRows) {
            const std::array<std::uint32_t, kInlineRows> rows = {inline_[0], inline_[1]};
            become_array(rows);
        } else if (count_ == array_[0]) {
            const OwnedArray full{array_};
            become_array({full.get() + 1, count_});
        }
        array_[1 + count_] = row;
    } else {
        if (count_ == kArrayRows) array_to_blocks();
        blocks_->append(row);
    }
    ++count_;
}

void RowList::erase(std::uint32_t row) {
    switch (form()) {
        case Form::in_header:
            if (inline_[0] == row) inline_[0] = inline_[1];
            --count_;
            return;
        case Form::array: {
            std::uint32_t* const first = array_ + 1;
            std::uint32_t* const end = first + count_;
            std::uint32_t* const at = std::lower_bound(first, end, row);
            std::memmove(at, at + 1, static_cast<std::size_t>(end - at - 1) * sizeof(*at));
            --count_;
            if (count_ == kInlineRows) {
                const OwnedArray array{array_};
                std::copy_n(array.get() + 1, kInlineRows, inline_);
            } else if (count_ < array_[0] / 2) {
                const OwnedArray array{array_};
                become_array({array.get() + 1, count_});
            }
            return;
        }
        case Form::blocks:
            blocks_->erase(row);
            --count_;
            if (count_ == kArrayRows) blocks_to_array();
            return;
    }
}

std::uint32_t RowList::rank(std::uint32_t row) const noexcept {
    if (form() == Form::blocks) return blocks_->rank(row);
    const auto rows = short_rows();
    return static_cast<std::uint32_t>(std::lower_bound(rows.begin(), rows.end(), row) -
                                      rows.begin());
}

// Copies the rows into a new array with room for more. The old one is the caller's to free.
void RowList::become_array(std::span<const std::uint32_t> rows) {
    const std::uint32_t capacity =
        std::min(kArrayRows, room_for(static_cast<std::uint32_t>(rows.size())));
    auto array = std::make_unique_for_overwrite<std::uint32_t[]>(capacity + 1);
    array[0] = capacity;
    std::copy(rows.begin(), rows.end(), array.get() + 1);
    array_ = array.release();
}

// Called with a full array, before the row that no longer fits.
void RowList::array_to_blocks() {
    const OwnedArray array{array_};
    auto blocks = std::make_unique<RowBlocks>();
    for (std::uint32_t index = 1; index <= kArrayRows; ++index)
        blocks->append(array[index]);
    blocks_ = blocks.release();
}

// Called when as many rows are left as an array takes.
void RowList::blocks_to_array() {
    const std::unique_ptr<RowBlocks> blocks{blocks_};
    auto array = std::make_unique_for_overwrite<std::uint32_t[]>(kArrayRows + 1);
    std::uint32_t count = 0;
    array[0] = kArrayRows;
    blocks->for_each([&](std::uint32_t row) { array[++count] = row; });
    array_ = array.release();
}

std::size_t RowList::heap_bytes() const noexcept {
    switch (form()) {
        case Form::in_header:
            return 0;
        case Form::array:
            return (array_[0] + 1) * sizeof(std::uint32_t);
        case Form::blocks:
            return sizeof(RowBlocks) + blocks_->heap_bytes();
    }
    return 0;
}

}  // namespace vorrim
