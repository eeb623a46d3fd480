#pragma once
// The rows at which unfinished searches will go on. Rows are renumbered under the index lock, which
// no search holds between two of its steps: so the places are kept here and renumbered with the
// rest. Marks take an eighth of a byte a file, so only so many searches keep theirs between steps.
//
// Threads     Any; a place is read and renumbered under the index lock.
#include <cstdint>
#include <list>

#include "base/Annotations.h"
#include "base/kx_critical_section.h"

namespace vorrim {

class OpenPlaces {
public:
    // One such row, as long as it lives.
    class Place {
    public:
        Place(OpenPlaces& places, std::uint32_t row) : places_(places) {
            const kx_guard hold(places_.lock_);
            at_ = places_.rows_.insert(places_.rows_.end(), row);
        }
        ~Place() {
            const kx_guard hold(places_.lock_);
            places_.rows_.erase(at_);
            if (keeps_marks_) --places_.keepers_;
        }
        Place(const Place&) = delete;
        Place& operator=(const Place&) = delete;

        // Under the index lock.
        [[nodiscard]] std::uint32_t row() const noexcept { return *at_; }
        void move(std::uint32_t row) noexcept { *at_ = row; }

        // Whether its search may keep its marks; once it may, it may for good.
        [[nodiscard]] bool may_keep_marks() {
            const kx_guard hold(places_.lock_);
            if (!keeps_marks_ && places_.keepers_ < kMostKeepers) {
                keeps_marks_ = true;
                ++places_.keepers_;
            }
            return keeps_marks_;
        }

    private:
        OpenPlaces& places_;
        std::list<std::uint32_t>::iterator at_;
        bool keeps_marks_ = false;
    };

    // Replaces every row by new_row(row). With the index lock alone.
    template <class NewRow>
    void renumber(NewRow&& new_row) {
        const kx_guard hold(lock_);
        for (std::uint32_t& row : rows_)
            row = new_row(row);
    }

private:
    static constexpr std::uint32_t kMostKeepers = 64;

    kx_critical_section lock_;  // a leaf
    std::list<std::uint32_t> rows_ GUARDED_BY(lock_);
    std::uint32_t keepers_ GUARDED_BY(lock_) = 0;
};

}  // namespace vorrim
