#include "search/SearchParser.h"

#include <cstdint>
#include <vector>

#include "base/file/primitives.h"
#include "base/kx_err.h"

namespace vorrim {

namespace {

std::unique_ptr<SearchNode> make_node(std::uint8_t type) {
    switch (static_cast<NodeKind>(type)) {
        case NodeKind::combine:
            return std::make_unique<SN_Operator>();
        case NodeKind::substring:
            return std::make_unique<SN_Substring>();
        case NodeKind::string_tag_compare:
            return std::make_unique<SN_StringTagCompare>();
        case NodeKind::int_tag_compare:
            return std::make_unique<SN_IntTagCompare>();
        case NodeKind::all:
            return std::make_unique<SN_All>();
    }
    return nullptr;
}

// Raises kx_err when the bytes end too early.
std::unique_ptr<SearchNode> parse(kx_memory_file& from) {
    std::unique_ptr<SearchNode> root;
    std::vector<SN_Operator*> ancestors;  // those that lack a child, outermost first
    for (std::size_t nodes = 0; nodes < kMaxSearchNodes; ++nodes) {
        if (ancestors.size() >= kMaxSearchDepth) return nullptr;
        auto node = make_node(read_8(from));
        if (!node) return nullptr;
        node->read(from);

        auto* combine = node_as<SN_Operator>(node.get());
        if (ancestors.empty())
            root = std::move(node);
        else if (!ancestors.back()->left())
            ancestors.back()->set_left(std::move(node));
        else
            ancestors.back()->set_right(std::move(node));

        if (combine) ancestors.push_back(combine);
        while (!ancestors.empty() && ancestors.back()->complete())
            ancestors.pop_back();
        if (ancestors.empty()) return root;
    }
    return nullptr;
}

}  // namespace

std::unique_ptr<SearchNode> parse_search_node(kx_memory_file& from) {
    try {
        return parse(from);
    } catch (const kx_err&) {
        return nullptr;  // bytes that end too early are no expression
    }
}

}  // namespace vorrim
