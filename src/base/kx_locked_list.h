#pragma once
// A list and its lock in one: the items are reached through the held lock.
//
//     for (Task* task : *waiting.lock()) ...         the lock is held to the end of the loop
//     waiting.append(task);                          the same for one step
//
// Threads: any. Whatever is reached through `lock` is only valid while its result lives. Not
// recursive: a thread that holds the list must not call the operations below.

#include <utility>

#include "base/kx_critical_section.h"
#include "base/kx_list.h"

namespace vorrim {

template <class Pointer>
class kx_locked_list final {
public:
    using Item = typename kx_list<Pointer>::Item;

    // The list while its lock is held.
    class [[nodiscard]] Held final {
    public:
        // The analysis cannot follow a lock into an object that is returned.
        explicit Held(kx_locked_list& owner) NO_THREAD_SAFETY_ANALYSIS : owner_(owner) {
            owner_.lock_.enter();
        }
        ~Held() NO_THREAD_SAFETY_ANALYSIS { owner_.lock_.leave(); }
        Held(const Held&) = delete;
        Held& operator=(const Held&) = delete;

        kx_list<Pointer>& operator*() const noexcept NO_THREAD_SAFETY_ANALYSIS {
            return owner_.items_;
        }
        kx_list<Pointer>* operator->() const noexcept { return &**this; }

    private:
        kx_locked_list& owner_;
    };

    Held lock() { return Held(*this); }

    void append(Pointer item) {
        const kx_guard hold(lock_);
        items_.append(std::move(item));
    }
    void prepend(Pointer item) {
        const kx_guard hold(lock_);
        items_.prepend(std::move(item));
    }
    // Looking and adding are one step.
    bool append_unique(Pointer item) {
        const kx_guard hold(lock_);
        return items_.append_unique(std::move(item));
    }
    void set_at(std::size_t index, Pointer item) {
        const kx_guard hold(lock_);
        items_.set_at(index, std::move(item));
    }
    void insert_at(std::size_t index, Pointer item) {
        const kx_guard hold(lock_);
        items_.insert_at(index, std::move(item));
    }
    bool remove(const Item* item) {
        const kx_guard hold(lock_);
        return items_.remove(item);
    }
    void clear() {
        const kx_guard hold(lock_);
        items_.clear();
    }
    [[nodiscard]] std::size_t count() {
        const kx_guard hold(lock_);
        return items_.count();
    }
    // Of an owning list the item may be gone as soon as this returns.
    [[nodiscard]] Item* get_at(std::size_t index) {
        const kx_guard hold(lock_);
        return items_.get_at(index);
    }
    [[nodiscard]] bool contains(const Item* item) {
        const kx_guard hold(lock_);
        return items_.contains(item);
    }
    void append_all(const kx_list<Pointer>& other) {
        const kx_guard hold(lock_);
        items_.append_all(other);
    }
    void remove_all(const kx_list<Pointer>& other) {
        const kx_guard hold(lock_);
        items_.remove_all(other);
    }
    template <class Less>
    void sort(Less less) {
        const kx_guard hold(lock_);
        items_.sort(less);
    }

private:
    kx_critical_section lock_;
    kx_list<Pointer> items_ GUARDED_BY(lock_);
};

}  // namespace vorrim
