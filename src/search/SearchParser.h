#pragma once
// From bytes to a tree of search nodes.
//
// Errors      Whatever is wrong with the bytes (an unknown type byte, a missing child, a field cut
//             short, a limit exceeded) gives none; nothing is raised.
// Limits      Nothing is reserved from a length or a count, and nothing recurses: the reader keeps
//             the operators that wait for a child, at most kMaxSearchDepth - 1 of them, in a list.
#include <cstddef>
#include <memory>

#include "base/file/kx_memory_file.h"
#include "search/SearchNode.h"

namespace vorrim {

// Nodes on the longest path from the root to a leaf, both counted.
inline constexpr std::size_t kMaxSearchDepth = 256;
// Nodes of the whole expression: a packet of one-byte leaves would otherwise become a tree of
// fifty times its size.
inline constexpr std::size_t kMaxSearchNodes = 65536;

// Reads one expression and leaves the stream behind it. On failure the position is anywhere.
[[nodiscard]] std::unique_ptr<SearchNode> parse_search_node(kx_memory_file& from);

}  // namespace vorrim
