#include "search/Evaluator.h"

#include "search/prefix_walk.h"

namespace vorrim {

Evaluator::Evaluator(const Search& search) : search_(&search) {
    if (search.root() == nullptr) return;
    prefix_walk(*search.root(), [this](const SearchNode&) {
        ++nodes_;
        return Sides::both;
    });
    if (nodes_ > kMostPlainNodes) wide_ = std::make_unique<WideSearch>(*search.root());
}

}  // namespace vorrim
