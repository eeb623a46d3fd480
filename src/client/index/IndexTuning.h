#pragma once
// The sizes of the index that tests shrink to reach its edges in little time. Servers keep the
// defaults.
#include <cstdint>

namespace vorrim {

struct IndexTuning {
    // Rows that may be given out before the live ones are numbered anew from 0.
    std::uint32_t row_limit = 0xFFFF8000u;
    // Rows of a segment: a power of two, from 4096 to 32768.
    std::uint32_t segment_rows = 32768;
    // Records entered, or entries left, under one hold of the index lock.
    std::uint32_t slice = 32;
    // Rows that a scan goes on by buckets before it judges whether that will do.
    std::uint32_t rows_to_judge = 1024;
    // Work of a search under one hold of the index lock, in the units of StepBudget: less than half
    // a millisecond.
    std::uint32_t step = 40'000;
};

}  // namespace vorrim
