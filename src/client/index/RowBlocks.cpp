#include "client/index/RowBlocks.h"

#include <bit>
#include <cstring>
#include <new>
#include <tuple>

#include "client/index/row_search.h"

namespace vorrim {
namespace {

constexpr std::uint32_t window_of(std::uint32_t row) {
    return row >> RowBlocks::kWindowBits;
}
constexpr std::uint32_t word_of(std::uint32_t row) {
    return (row & (RowBlocks::kWindowRows - 1)) / 64;
}
constexpr std::uint64_t bit_of(std::uint32_t row) {
    return std::uint64_t{1} << (row % 64);
}
constexpr std::size_t kBitmapBytes = RowBlocks::kWindowRows / 8;
// Neighbouring arrays that together would half fill a block become one.
constexpr std::uint32_t kMergedRows = RowBlocks::kBlockRows / 2;

}  // namespace

RowBlocks::Block RowBlocks::try_array(std::uint32_t base, std::uint32_t capacity) noexcept {
    Block block;
    block.base = base;
    block.capacity = static_cast<std::uint16_t>(capacity);
    block.data = PageHeap::try_array<std::byte>(capacity * sizeof(std::uint32_t));
    return block;
}

RowBlocks::Block RowBlocks::try_bitmap(std::uint32_t window_start) noexcept {
    Block block;
    block.base = window_start;
    block.data = PageHeap::try_array<std::byte>(kBitmapBytes);
    if (block.data) std::fill_n(block.data.get(), kBitmapBytes, std::byte{0});
    return block;
}

RowBlocks::Block RowBlocks::with_data(Block block) {
    if (!block.data) throw std::bad_alloc();
    return block;
}

bool RowBlocks::resize_array(Block& block, std::uint32_t capacity) noexcept {
    Block resized = try_array(block.base, capacity);
    if (!resized.data) return false;
    resized.count = block.count;
    std::copy_n(block.rows(), block.count, resized.rows());
    block = std::move(resized);
    return true;
}

std::uint32_t RowBlocks::select(const Block& block, std::uint32_t index) noexcept {
    std::uint32_t word = 0;
    for (;; ++word) {
        const auto inside = static_cast<std::uint32_t>(std::popcount(block.bits()[word]));
        if (index < inside) break;
        index -= inside;
    }
    std::uint64_t bits = block.bits()[word];
    for (; index != 0; --index)
        bits &= bits - 1;
    return block.base + word * 64 + static_cast<std::uint32_t>(std::countr_zero(bits));
}

std::size_t RowBlocks::likely_block_of(std::uint32_t row) const noexcept {
    return guess_between(blocks_.front().base, blocks_.back().base, blocks_.size(), row);
}

std::size_t RowBlocks::block_of(std::uint32_t row) const noexcept {
    const std::size_t after = gallop(blocks_.size(), likely_block_of(row),
                                     [&](std::size_t index) { return blocks_[index].base <= row; });
    return after == 0 ? 0 : after - 1;
}

void RowBlocks::append(std::uint32_t row) {
    if (!blocks_.empty()) {
        Block& last = blocks_.back();
        if (last.bitmap()) {
            if (window_of(last.base) == window_of(row)) {
                last.bits()[word_of(row)] |= bit_of(row);
                ++last.count;
                return;
            }
        } else if (last.count + 1u >= kDense && last.count < kBlockRows &&
                   window_of(last.rows()[last.count + 1u - kDense]) == window_of(row)) {
            turn_tail_dense(window_of(row) << kWindowBits);
            return append(row);
        } else if (last.count < kBlockRows) {
            if (last.count == last.capacity &&
                !resize_array(last, std::min<std::uint32_t>(kBlockRows, last.capacity * 2u)))
                throw std::bad_alloc();
            last.rows()[last.count++] = row;
            return;
        }
    }
    blocks_.push_back(with_data(try_array(row, kFirstCapacity)));
    blocks_.back().rows()[0] = row;
    blocks_.back().count = 1;
}

// The end of the last array holds so many rows of one window that one more deserves its bitmap:
// they become it, together with those at the end of the array before, for a window's bitmap has
// all of its rows.
void RowBlocks::turn_tail_dense(std::uint32_t window_start) {
    blocks_.push_back(with_data(try_bitmap(window_start)));  // what follows raises nothing
    Block bitmap = std::move(blocks_.back());
    blocks_.pop_back();
    while (!blocks_.empty() && !blocks_.back().bitmap() &&
           blocks_.back().array().back() >= window_start) {
        Block& last = blocks_.back();
        const auto rows = last.array();
        const auto split = std::lower_bound(rows.begin(), rows.end(), window_start);
        for (auto row = split; row != rows.end(); ++row)
            bitmap.bits()[word_of(*row)] |= bit_of(*row);
        const auto kept = static_cast<std::uint32_t>(split - rows.begin());
        bitmap.count = static_cast<std::uint16_t>(bitmap.count + last.count - kept);
        last.count = static_cast<std::uint16_t>(kept);
        if (kept != 0) {
            std::ignore = resize_array(last, kept);
            break;
        }
        blocks_.pop_back();
    }
    blocks_.push_back(std::move(bitmap));
}

void RowBlocks::turn_sparse(Block& block) noexcept {
    Block array = try_array(block.base, block.count);
    if (!array.data) return;
    for (std::uint32_t word = 0; word < kWindowWords; ++word)
        for (std::uint64_t rest = block.bits()[word]; rest != 0; rest &= rest - 1)
            array.rows()[array.count++] =
                block.base + word * 64 + static_cast<std::uint32_t>(std::countr_zero(rest));
    block = std::move(array);
}

void RowBlocks::erase(std::uint32_t row) noexcept {
    const std::size_t index = block_of(row);
    Block& block = blocks_[index];
    if (block.bitmap()) {
        block.bits()[word_of(row)] &= ~bit_of(row);
        --block.count;
        if (block.count >= kSparse) return;
        turn_sparse(block);
    } else {
        std::uint32_t* const end = block.rows() + block.count;
        std::uint32_t* const at = block.rows() + find_row(block.array(), row);
        std::memmove(at, at + 1, static_cast<std::size_t>(end - at - 1) * sizeof(*at));
        --block.count;
    }
    tidy(index);
}

// After an erasure: no empty block stays, small neighbours merge, an array three quarters empty
// gives its room back.
void RowBlocks::tidy(std::size_t index) noexcept {
    Block& block = blocks_[index];
    if (block.count == 0) {
        blocks_.erase(blocks_.begin() + static_cast<std::ptrdiff_t>(index));
        if (blocks_.capacity() > blocks_.size() * 2 + 4) blocks_.shrink_to_fit();
        return;
    }
    if (merge_with_next(index) || (index > 0 && merge_with_next(index - 1))) return;
    if (block.capacity > kFirstCapacity && block.count < block.capacity / 4)
        std::ignore = resize_array(block, block.capacity / 2u);
}

bool RowBlocks::merge_with_next(std::size_t index) noexcept {
    if (index + 1 >= blocks_.size()) return false;
    Block& first = blocks_[index];
    const Block& second = blocks_[index + 1];
    const std::uint32_t together = std::uint32_t{first.count} + second.count;
    if (first.bitmap() || second.bitmap() || together > kMergedRows) return false;
    if (together > first.capacity && !resize_array(first, together)) return false;
    std::copy_n(second.rows(), second.count, first.rows() + first.count);
    first.count = static_cast<std::uint16_t>(together);
    blocks_.erase(blocks_.begin() + static_cast<std::ptrdiff_t>(index) + 1);
    return true;
}

std::uint32_t RowBlocks::rank(std::uint32_t row) const noexcept {
    if (blocks_.empty()) return 0;
    const std::size_t index = block_of(row);
    std::uint32_t below = 0;
    for (std::size_t before = 0; before < index; ++before)
        below += blocks_[before].count;
    const Block& block = blocks_[index];
    if (row <= block.base) return below;
    if (!block.bitmap()) return below + static_cast<std::uint32_t>(find_row(block.array(), row));
    if (window_of(row) != window_of(block.base)) return below + block.count;
    for (std::uint32_t word = 0; word < word_of(row); ++word)
        below += static_cast<std::uint32_t>(std::popcount(block.bits()[word]));
    return below + static_cast<std::uint32_t>(
                       std::popcount(block.bits()[word_of(row)] & (bit_of(row) - 1)));
}

bool RowBlocks::prefetch_append(int step) const noexcept {
    const Block& last = blocks_.back();
    if (step == 0) {
        __builtin_prefetch(&last, 1);
        return true;
    }
    if (!last.bitmap()) __builtin_prefetch(last.rows() + last.count, 1);
    return false;
}

bool RowBlocks::prefetch_erase(std::uint32_t row, int step) const noexcept {
    if (step == 0) {
        __builtin_prefetch(&blocks_.front());
        __builtin_prefetch(&blocks_.back());
        return true;
    }
    if (step == 1) {
        __builtin_prefetch(&blocks_[likely_block_of(row)], 1);
        return true;
    }
    const Block& block = blocks_[block_of(row)];
    if (block.bitmap())
        __builtin_prefetch(block.bits() + word_of(row), 1);
    else
        vorrim::prefetch_row(block.array(), row);
    return false;
}

}  // namespace vorrim
