#pragma once
// What the left side of an operator leaves to be asked of the right one.
#include <cstdint>

namespace vorrim {

enum class Rest { nothing, right, right_negated };

struct Verdict {
    bool value;  // the result when the rest is nothing
    Rest rest;
};

// An operator of unknown code is false, whatever its sides are.
[[nodiscard]] Verdict after_left(std::int32_t op, bool left) noexcept;

}  // namespace vorrim
