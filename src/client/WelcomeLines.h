#pragma once
// The texts that every client receives after its login, in order. The operator may change them
// while the server runs.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "base/Annotations.h"
#include "base/kx_critical_section.h"

namespace vorrim {

// Any thread.
class WelcomeLines final {
public:
    void append(std::string_view line) {
        const kx_guard hold(lock_);
        lines_.emplace_back(line);
    }

    void insert_front(std::string_view line) {
        const kx_guard hold(lock_);
        lines_.insert(lines_.begin(), std::string(line));
    }

    // Replaces the line at `position`, counted from 1; where there is none, appends.
    void set(std::size_t position, std::string_view line) {
        const kx_guard hold(lock_);
        if (position >= 1 && position <= lines_.size()) {
            lines_[position - 1] = line;
        } else {
            lines_.emplace_back(line);
        }
    }

    void replace(std::vector<std::string> lines) {
        const kx_guard hold(lock_);
        lines_.swap(lines);
    }

    // Calls `visit` with each line in order, under the lock, inside which it may lock a send queue
    // and nothing else.
    template <class Visit>
    void for_each(Visit visit) const {
        const kx_guard hold(lock_);
        for (const std::string& line : lines_)
            visit(line);
    }

private:
    mutable kx_critical_section lock_;
    std::vector<std::string> lines_ GUARDED_BY(lock_);
};

}  // namespace vorrim
