#pragma once
// The rows that unfinished searches remember. Rows are renumbered under the index lock, which no
// search holds between two of its steps: so they are kept here and renumbered with the rest.
//
// Threads     Any; what a place keeps is used and renumbered under the index lock.
#include <compare>
#include <cstdint>
#include <list>
#include <vector>

#include "base/Annotations.h"
#include "base/kx_critical_section.h"

namespace vorrim {

// Before the first row of the bucket that is not lower. In the order of a scan.
struct BucketPlace {
    std::uint32_t bucket;
    std::uint32_t row;
    friend auto operator<=>(const BucketPlace&, const BucketPlace&) = default;
};

class OpenPlaces {
public:
    struct Kept {
        std::uint32_t row;  // at which the search goes on
        // Of a scan in the order of rows: those below have been looked at, and these matched, a
        // heap; others, that are behind them, were dropped.
        std::uint32_t looked_at = 0;
        std::vector<BucketPlace> matches{};
        bool dropped = false;
    };

    // What one search keeps, as long as it lives.
    class Place {
    public:
        Place(OpenPlaces& places, std::uint32_t row) : places_(places) {
            const kx_guard hold(places_.lock_);
            at_ = places_.kept_.insert(places_.kept_.end(), Kept{.row = row});
        }
        ~Place() {
            const kx_guard hold(places_.lock_);
            places_.kept_.erase(at_);
        }
        Place(const Place&) = delete;
        Place& operator=(const Place&) = delete;

        // Under the index lock.
        [[nodiscard]] Kept& kept() noexcept { return *at_; }

    private:
        OpenPlaces& places_;
        std::list<Kept>::iterator at_;
    };

    // Replaces every row by new_row(row), which keeps their order; the number of one that is gone
    // becomes that of the next. With the index lock alone.
    template <class NewRow>
    void renumber(NewRow&& new_row) {
        const kx_guard hold(lock_);
        for (Kept& kept : kept_) {
            kept.row = new_row(kept.row);
            kept.looked_at = new_row(kept.looked_at);
            for (BucketPlace& match : kept.matches)
                match.row = new_row(match.row);
        }
    }

private:
    kx_critical_section lock_;  // a leaf
    std::list<Kept> kept_ GUARDED_BY(lock_);
};

}  // namespace vorrim
