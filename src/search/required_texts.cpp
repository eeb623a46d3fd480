#include "search/required_texts.h"

#include "search/prefix_walk.h"

namespace vorrim {

namespace {

// The sides of an operator that are true whenever the operator is.
Sides required_sides(std::int32_t op) {
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

}  // namespace

std::vector<std::string_view> required_texts(const SearchNode& root) {
    std::vector<std::string_view> texts;
    prefix_walk(root, [&](const SearchNode& node) {
        std::string_view text;
        if (const auto* combine = node_as<SN_Operator>(&node)) return required_sides(combine->op());
        if (const auto* substring = node_as<SN_Substring>(&node)) text = substring->text();
        if (const auto* compare = node_as<SN_StringTagCompare>(&node)) text = compare->text();
        if (!text.empty()) texts.push_back(text);
        return Sides::neither;
    });
    return texts;
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
