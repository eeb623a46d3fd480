#pragma once
// Visits the nodes of a tree in prefix order, the order of the wire, without recursion.
//
//     prefix_walk(root, [](const SearchNode& node) { ...; return Sides::both; });
//
// The visitor says which sides of an operator to go into; for a leaf its answer is ignored.
#include <cstddef>

#include "search/SearchNode.h"
#include "search/SpillStack.h"

namespace vorrim {

enum class Sides { neither, left, right, both };

template <class Visit>
void prefix_walk(const SearchNode& root, Visit visit) {
    // Holds the right sides still to be visited.
    constexpr std::size_t kUsualDepth = 32;
    SpillStack<const SearchNode*, kUsualDepth> open;
    open.push(&root);
    while (!open.empty()) {
        const SearchNode* node = open.pop();
        const Sides sides = visit(*node);
        const auto* combine = node_as<SN_Operator>(node);
        if (!combine) continue;
        if (combine->right() && (sides == Sides::right || sides == Sides::both))
            open.push(combine->right());
        if (combine->left() && (sides == Sides::left || sides == Sides::both))
            open.push(combine->left());
    }
}

}  // namespace vorrim
