#include "search/Search.h"

#include <utility>

#include "search/SearchParser.h"

namespace vorrim {

bool Search::read(kx_memory_file& from) {
    keyword_.clear();
    resume_position = kNothingToContinue;
    resume_offset = 0;
    root_.reset();
    root_ = parse_search_node(from);
    return root_ != nullptr;
}

bool Search::matches(RecordView record) const {
    return root_ && root_->evaluate(record);
}

std::string_view Search::extract_keyword() {
    if (root_ && keyword_.empty()) {
        SearchNode& root = *root_;
        root_ = root.extract_keyword(std::move(root_), keyword_);
        if (!root_) root_ = std::make_unique<SN_All>();
    }
    return keyword_;
}

void Search::add_term(std::unique_ptr<SearchNode> node, std::int32_t op) {
    root_ = root_ ? std::make_unique<SN_Operator>(op, std::move(root_), std::move(node))
                  : std::move(node);
}

void Search::print(std::string& buffer) const {
    buffer = "search( ";
    if (root_) root_->print(buffer);
    buffer += " )";
}

}  // namespace vorrim
