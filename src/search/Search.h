#pragma once
// One search expression with what a continued search needs to remember: the keyword that was taken
// out of the tree, and where the last batch stopped.
//
//     read ──► root: blue sky & 02>1000
//     extract_keyword ──► keyword: blue    root: sky & 02>1000
//
// Ownership   Owns its tree. Moves, never copies.
// Threads     None inside: belongs to one connection, datagram or filter at a time. matches and
//             print are const and may run in several threads at once.
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "base/file/kx_memory_file.h"
#include "meta/RecordView.h"
#include "search/SearchNode.h"

namespace vorrim {

class Search final {
public:
    static constexpr std::int32_t kNothingToContinue = -1;

    // Forgets everything (keyword, resume point, tree) and reads a new expression. False, and no
    // tree, when it cannot be read; limits as in SearchParser.h. Raises nothing.
    [[nodiscard]] bool read(kx_memory_file& from);

    // Does the record match the tree as it stands? False without a tree.
    [[nodiscard]] bool matches(RecordView record) const;

    // While the keyword is empty, takes one out of the tree. A tree of which nothing remains
    // becomes one that matches every record. Returns the keyword, possibly still empty.
    std::string_view extract_keyword();
    [[nodiscard]] const std::string& keyword() const noexcept { return keyword_; }

    // The node becomes the tree, or the right side of a new operator over the tree so far.
    void add_term(std::unique_ptr<SearchNode> node, std::int32_t op);

    // Replaces the buffer by "search( ", the tree and " )".
    void print(std::string& buffer) const;

    [[nodiscard]] const SearchNode* root() const noexcept { return root_.get(); }

    // Where a limited search goes on: a bucket and an entry in it for a scan, an entry of the
    // keyword's list (offset unused) for a keyword search.
    std::int32_t resume_position = kNothingToContinue;
    std::int32_t resume_offset = 0;

private:
    std::string keyword_;
    std::unique_ptr<SearchNode> root_;
};

}  // namespace vorrim
