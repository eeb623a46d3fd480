#pragma once
// A singly linked list of pointers, closed to a ring by its own sentinel.
//
//     sentinel ─► first ─► second ─► ... ─► last ─┐
//        ▲                                        │
//        └────────────────────────────────────────┘      an empty list: the sentinel alone
//
// Ownership   kx_list<T*> borrows its items; kx_list<std::unique_ptr<T>> owns them, and destroys
//             what is removed, replaced or cleared. Null is never stored: adding it does
//             nothing.
// Cost        Adding at either end is one step; an index, a count or a search walks from the front.
// Threads     None inside.

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

namespace vorrim {

template <class Pointer>
class kx_list {
    struct Link {
        Link* next;
    };
    struct Node : Link {
        Node(Pointer&& held, Link* follower) : Link{follower}, item(std::move(held)) {}
        Pointer item;
    };

public:
    using Item = typename std::pointer_traits<Pointer>::element_type;

    // Over the items, as the pointers that the list holds.
    class iterator final {
    public:
        using value_type = Pointer;
        using difference_type = std::ptrdiff_t;
        using iterator_category = std::forward_iterator_tag;
        using reference = const Pointer&;
        using pointer = const Pointer*;

        iterator() = default;
        reference operator*() const noexcept { return static_cast<Node*>(link_)->item; }
        pointer operator->() const noexcept { return &**this; }
        iterator& operator++() noexcept {
            link_ = link_->next;
            return *this;
        }
        iterator operator++(int) noexcept {
            iterator before = *this;
            ++*this;
            return before;
        }
        friend bool operator==(iterator, iterator) = default;

    private:
        friend class kx_list;
        explicit iterator(Link* link) noexcept : link_(link) {}
        Link* link_ = nullptr;
    };

    kx_list() noexcept = default;
    ~kx_list() { clear(); }
    kx_list(kx_list&& other) noexcept { splice(other); }
    kx_list& operator=(kx_list&& other) noexcept {
        if (this != &other) {
            clear();
            splice(other);
        }
        return *this;
    }
    kx_list(const kx_list&) = delete;
    kx_list& operator=(const kx_list&) = delete;

    [[nodiscard]] iterator begin() const noexcept { return iterator(sentinel_.next); }
    [[nodiscard]] iterator end() const noexcept { return iterator(&sentinel_); }
    [[nodiscard]] bool empty() const noexcept { return sentinel_.next == &sentinel_; }

    void append(Pointer item) {
        if (item) insert_after(tail_, std::move(item));
    }
    void prepend(Pointer item) {
        if (item) insert_after(&sentinel_, std::move(item));
    }
    // False, and nothing added, when the very same item is in the list.
    bool append_unique(Pointer item) {
        if (contains(std::to_address(item))) return false;
        append(std::move(item));
        return true;
    }
    // Past the end these two append.
    void set_at(std::size_t index, Pointer item) {
        Link* const before = link_before(index);
        if (before->next == &sentinel_) {
            append(std::move(item));
        } else if (item) {
            static_cast<Node*>(before->next)->item = std::move(item);
        }
    }
    void insert_at(std::size_t index, Pointer item) {
        if (item) insert_after(link_before(index), std::move(item));
    }

    // Unlinks the first node with this item; false when there is none.
    bool remove(const Item* item) noexcept {
        for (Link* link = &sentinel_; link->next != &sentinel_; link = link->next) {
            if (std::to_address(static_cast<Node*>(link->next)->item) != item) continue;
            unlink_after(link);
            return true;
        }
        return false;
    }
    // Unlinks the node after the position, or the first one for `end()`, and returns the position;
    // `end()` when there is no next node. For removing while iterating.
    iterator remove_after(iterator position) noexcept {
        if (position.link_->next == &sentinel_) return end();
        unlink_after(position.link_);
        return position;
    }
    void clear() noexcept {
        while (!empty())
            unlink_after(&sentinel_);
    }

    [[nodiscard]] std::size_t count() const noexcept {
        return static_cast<std::size_t>(std::distance(begin(), end()));
    }
    // Null past the end.
    [[nodiscard]] Item* get_at(std::size_t index) const noexcept {
        Link* const link = link_before(index)->next;
        return link == &sentinel_ ? nullptr : std::to_address(static_cast<Node*>(link)->item);
    }
    [[nodiscard]] bool contains(const Item* item) const noexcept {
        for (const Pointer& held : *this)
            if (std::to_address(held) == item) return true;
        return false;
    }

    // Only for a list that borrows. A list may be appended to itself.
    void append_all(const kx_list& other) requires std::is_copy_constructible_v<Pointer> {
        Link* const last = other.tail_;
        for (iterator at = other.begin(); at != other.end(); ++at) {
            append(*at);
            if (at.link_ == last) break;
        }
    }
    // Moves all items of the other list behind those of this one, in one step.
    void splice(kx_list& other) noexcept {
        if (this == &other || other.empty()) return;
        tail_->next = other.sentinel_.next;
        tail_ = other.tail_;
        tail_->next = &sentinel_;
        other.sentinel_.next = other.tail_ = &other.sentinel_;
    }
    // Removes one occurrence of every item of the other list.
    void remove_all(const kx_list& other) noexcept {
        if (this == &other) return clear();
        for (const Pointer& item : other)
            remove(std::to_address(item));
    }

    // `less` compares two items. Equal items keep their order.
    template <class Less>
    void sort(Less less) {
        std::vector<Pointer> items;
        for (Link* link = sentinel_.next; link != &sentinel_; link = link->next)
            items.push_back(std::move(static_cast<Node*>(link)->item));
        merge_sort(items, less);
        Link* link = sentinel_.next;
        for (Pointer& item : items) {
            static_cast<Node*>(link)->item = std::move(item);
            link = link->next;
        }
    }

private:
    // Bottom-up, so that a comparator that is no strict order can at worst leave a strange order.
    template <class Less>
    static void merge_sort(std::vector<Pointer>& items, Less& less) {
        std::vector<Pointer> merged(items.size());
        for (std::size_t width = 1; width < items.size(); width *= 2) {
            for (std::size_t begin = 0; begin < items.size(); begin += 2 * width) {
                const std::size_t middle = std::min(begin + width, items.size());
                const std::size_t end = std::min(begin + 2 * width, items.size());
                std::size_t left = begin;
                std::size_t right = middle;
                for (std::size_t to = begin; to < end; ++to) {
                    const bool from_right =
                        right < end && (left == middle || less(*items[right], *items[left]));
                    merged[to] = std::move(items[from_right ? right++ : left++]);
                }
            }
            items.swap(merged);
        }
    }

    // The link after which element `index` stands; past the end, the last one.
    [[nodiscard]] Link* link_before(std::size_t index) const noexcept {
        Link* link = &sentinel_;
        for (; index != 0 && link->next != &sentinel_; --index)
            link = link->next;
        return link;
    }
    void insert_after(Link* link, Pointer&& item) {
        link->next = new Node(std::move(item), link->next);
        if (tail_ == link) tail_ = link->next;
    }
    void unlink_after(Link* link) noexcept {
        Node* const gone = static_cast<Node*>(link->next);
        link->next = gone->next;
        if (tail_ == gone) tail_ = link;
        delete gone;
    }

    // Mutable: an iterator over a constant list walks the same links as one over a changing list.
    mutable Link sentinel_{&sentinel_};
    Link* tail_ = &sentinel_;
};

}  // namespace vorrim
