#include "search/required_sides.h"

namespace vorrim {

Sides required_sides(std::int32_t op) noexcept {
    switch (op) {
        case CombineOp::kAnd:
            return Sides::both;
        case CombineOp::kAndNot:
            return Sides::left;
        case CombineOp::kNotAnd:
            return Sides::right;
        default:
            return Sides::neither;
    }
}

bool may_report(const SearchNode& root) {
    bool found = false;
    prefix_walk(root, [&](const SearchNode& node) {
        if (const auto* combine = node_as<SN_Operator>(&node)) found |= !combine->known();
        if (const auto* compare = node_as<SN_IntTagCompare>(&node)) found |= !compare->known();
        return found ? Sides::neither : Sides::both;
    });
    return found;
}

}  // namespace vorrim
