#pragma once
// A stack for walking trees: the first Inline items live in the object, what goes beyond them in a
// vector that ordinary trees never touch. Threads: none inside.
#include <array>
#include <cstddef>
#include <type_traits>
#include <vector>

namespace vorrim {

template <class Item, std::size_t Inline>
class SpillStack final {
    static_assert(std::is_trivially_copyable_v<Item>);

public:
    [[nodiscard]] bool empty() const noexcept { return size_ == 0; }

    void push(Item item) {
        if (size_ < Inline)
            inline_[size_] = item;
        else
            spilled_.push_back(item);
        ++size_;
    }

    // Not on an empty stack, both of them.
    [[nodiscard]] Item top() const noexcept {
        return size_ <= Inline ? inline_[size_ - 1] : spilled_.back();
    }
    Item pop() noexcept {
        const Item item = top();
        if (size_ > Inline) spilled_.pop_back();
        --size_;
        return item;
    }

private:
    std::size_t size_ = 0;
    std::array<Item, Inline> inline_;  // written before read: left as it is
    std::vector<Item> spilled_;
};

}  // namespace vorrim
