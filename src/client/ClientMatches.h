#pragma once
// A search among the clients on its way: what ClientTable::match_clients goes on with, a step of
// bounded length each. Between two steps clients come and go: nobody who stays is skipped or met
// twice.
//
// Ownership   Refers to its Search and to the table, which must outlive it. Moves, never copies.
// Threads     None inside: belongs to one thread.
#include <algorithm>
#include <cstdint>
#include <list>
#include <memory>

#include "base/Annotations.h"
#include "base/kx_critical_section.h"
#include "search/Search.h"
#include "search/UnknownOperations.h"

namespace vorrim {

class ClientConnection;

// Whom unfinished walks through the table visit next; null behind the last client. A mark is read,
// moved and passed on under the table's lock.
class Bookmarks final {
public:
    class Mark {
    public:
        Mark(Bookmarks& marks, ClientConnection* next) : marks_(marks) {
            const kx_guard hold(marks_.lock_);
            at_ = marks_.next_.insert(marks_.next_.end(), next);
        }
        ~Mark() {
            const kx_guard hold(marks_.lock_);
            marks_.next_.erase(at_);
        }
        Mark(const Mark&) = delete;
        Mark& operator=(const Mark&) = delete;

        [[nodiscard]] ClientConnection* next() const noexcept { return *at_; }
        void move(ClientConnection* next) noexcept { *at_ = next; }

    private:
        Bookmarks& marks_;
        std::list<ClientConnection*>::iterator at_;
    };

    // The client leaves; this one comes after it. With the table's lock alone.
    void pass(const ClientConnection& client, ClientConnection* after) {
        const kx_guard hold(lock_);
        std::ranges::replace(next_, &client, after);
    }

private:
    kx_critical_section lock_;  // a leaf
    std::list<ClientConnection*> next_ GUARDED_BY(lock_);
};

class ClientMatches final {
public:
    ClientMatches(const Search& search, std::int32_t limit) : search_(&search), limit_(limit) {}

    // Clients that have been found so far.
    [[nodiscard]] std::int32_t found() const noexcept { return found_; }

private:
    friend class ClientTable;

    const Search* search_;
    std::int32_t limit_;
    std::int32_t found_ = 0;
    std::uint32_t cost_ = 0;  // of a client, in units of StepBudget; 0 before the first step
    std::unique_ptr<Bookmarks::Mark> place_;  // once a step has not been enough
    UnknownReports reports_;
};

}  // namespace vorrim
