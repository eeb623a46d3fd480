#pragma once
// Moves the live rows of a segment, or of two neighbours, together into one that takes their place.
//
// It goes in steps of bounded length, while the old segments go on to serve: rows and columns of
// an entry never change, and so they can move at any time; who has left or has become reachable
// meanwhile is looked at in the end.
//
// Threads     None inside; a step changes nothing that the old segments' readers see.
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "client/index/Segment.h"

namespace vorrim {

class SegmentPacking {
public:
    // No row may be appended to either any more; the successor may be null. Both must outlive this.
    // Raises std::bad_alloc.
    SegmentPacking(Segment& segment, Segment* successor);

    [[nodiscard]] Segment& segment() const noexcept { return *from_[0].segment; }
    [[nodiscard]] Segment* successor() const noexcept { return from_[1].segment; }
    [[nodiscard]] bool concerns(const Segment& segment) const noexcept {
        return from_[0].segment == &segment || from_[1].segment == &segment;
    }

    // The next step; false when there is none left.
    bool step() noexcept;
    // Behind the last step: the packed segment. Takes over what is known of the texts: the old ones
    // are of no further use.
    [[nodiscard]] std::unique_ptr<Segment> finish() noexcept;

private:
    static constexpr std::size_t kGroup = 64;  // columns of a step

    struct From {
        Segment* segment;
        std::vector<std::uint32_t> slots;  // that were live when it began
    };
    void move_group(const From& from, std::size_t first_row, std::uint32_t to) noexcept;

    std::array<From, 2> from_;
    std::unique_ptr<Segment> packed_;
    std::size_t next_row_ = Segment::kFirstColumn;  // of bits
};

}  // namespace vorrim
