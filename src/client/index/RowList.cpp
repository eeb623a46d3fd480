#include "client/index/RowList.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "client/index/row_search.h"

namespace vorrim {
namespace {

using OwnedArray = std::unique_ptr<std::uint32_t[]>;

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
        const std::uint32_t capacity = capacity_for(count_ + 1);
        if (count_ == kInlineRows) {
            const std::array<std::uint32_t, kInlineRows> rows = {inline_[0], inline_[1]};
            become_array(rows, capacity);
        } else if (capacity_for(count_) != capacity) {
            const OwnedArray full{array_};
            become_array({full.get(), count_}, capacity);
        }
        array_[count_] = row;
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
            std::uint32_t* const end = array_ + count_;
            std::uint32_t* const at = array_ + find_row(short_rows(), row);
            std::memmove(at, at + 1, static_cast<std::size_t>(end - at - 1) * sizeof(*at));
            --count_;
            if (count_ == kInlineRows) {
                const OwnedArray array{array_};
                std::copy_n(array.get(), kInlineRows, inline_);
            } else if (capacity_for(count_) != capacity_for(count_ + 1)) {
                const OwnedArray array{array_};
                become_array({array.get(), count_}, capacity_for(count_));
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

// Copies the rows into a new array. The old one is the caller's to free.
void RowList::become_array(std::span<const std::uint32_t> rows, std::uint32_t capacity) {
    auto array = std::make_unique_for_overwrite<std::uint32_t[]>(capacity);
    std::copy(rows.begin(), rows.end(), array.get());
    array_ = array.release();
}

// Called with a full array, before the row that no longer fits.
void RowList::array_to_blocks() {
    const OwnedArray array{array_};
    auto blocks = std::make_unique<RowBlocks>();
    for (std::uint32_t index = 0; index < kArrayRows; ++index)
        blocks->append(array[index]);
    blocks_ = blocks.release();
}

// Called when as many rows are left as an array takes.
void RowList::blocks_to_array() {
    const std::unique_ptr<RowBlocks> blocks{blocks_};
    auto array = std::make_unique_for_overwrite<std::uint32_t[]>(kArrayRows);
    std::uint32_t count = 0;
    blocks->for_each([&](std::uint32_t row) { array[count++] = row; });
    array_ = array.release();
}

bool RowList::prefetch_append(int step) const noexcept {
    switch (form()) {
        case Form::in_header:
            return false;
        case Form::array:
            __builtin_prefetch(array_ + count_, 1);
            return false;
        case Form::blocks:
            if (step != 0) return blocks_->prefetch_append(step - 1);
            __builtin_prefetch(blocks_, 1);
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
            __builtin_prefetch(array_, 1);
            __builtin_prefetch(array_ + count_ - 1, 1);
            return true;
        case Form::blocks:
            if (step != 0) return blocks_->prefetch_erase(row, step - 1);
            __builtin_prefetch(blocks_);
            return true;
    }
    return false;
}

std::size_t RowList::heap_bytes() const noexcept {
    switch (form()) {
        case Form::in_header:
            return 0;
        case Form::array:
            return capacity_for(count_) * sizeof(std::uint32_t);
        case Form::blocks:
            return sizeof(RowBlocks) + blocks_->heap_bytes();
    }
    return 0;
}

}  // namespace vorrim
