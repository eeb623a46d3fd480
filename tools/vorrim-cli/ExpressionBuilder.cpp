// From what was typed to the tree that is sent.

#include <algorithm>
#include <utility>
#include <vector>

#include "ExpressionParser.h"
#include "meta/words.h"
#include "search/SearchNode.h"

namespace vorrim::cli {

namespace {

using Kind = ExpressionTerm::Kind;
using Node = std::unique_ptr<SearchNode>;

Node combined(std::int32_t op, Node left, Node right) {
    return std::make_unique<SN_Operator>(op, std::move(left), std::move(right));
}

// Nothing on the left makes the right stand alone.
Node joined(std::int32_t op, Node left, Node right) {
    return left ? combined(op, std::move(left), std::move(right)) : std::move(right);
}

Node node_for(const ExpressionTerm& term);

void flatten(const ExpressionTerm& term, std::vector<const ExpressionTerm*>& parts) {
    if (term.kind != Kind::all_of) {
        parts.push_back(&term);
        return;
    }
    for (const ExpressionTerm& part : term.parts)
        flatten(part, parts);
}

std::vector<const ExpressionTerm*> parts_of(const ExpressionTerm& term) {
    std::vector<const ExpressionTerm*> parts;
    flatten(term, parts);
    return parts;
}

// `start` and every part; none of the parts that are denied.
Node conjunction(Node start, const std::vector<const ExpressionTerm*>& parts) {
    Node node = std::move(start);
    for (const ExpressionTerm* part : parts) {
        if (part->kind != Kind::none_of) {
            node = joined(CombineOp::kAnd, std::move(node), node_for(*part));
        }
    }
    if (!node) node = std::make_unique<SN_All>();
    for (const ExpressionTerm* part : parts) {
        if (part->kind == Kind::none_of) {
            node = combined(CombineOp::kAndNot, std::move(node), node_for(part->parts.front()));
        }
    }
    return node;
}

Node node_for(const ExpressionTerm& term) {
    switch (term.kind) {
        case Kind::everything:
            break;
        case Kind::text:
            return std::make_unique<SN_Substring>(term.text);
        case Kind::text_compare:
            return std::make_unique<SN_StringTagCompare>(term.text, term.tag);
        case Kind::integer_compare:
            return std::make_unique<SN_IntTagCompare>(term.number, term.comparison, term.tag);
        case Kind::all_of:
        case Kind::none_of:
            return conjunction(nullptr, parts_of(term));
        case Kind::any_of: {
            Node node;
            for (const ExpressionTerm& part : term.parts) {
                node = joined(CombineOp::kOr, std::move(node), node_for(part));
            }
            return node;
        }
    }
    return std::make_unique<SN_All>();
}

}  // namespace

std::string_view first_whole_word(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(kWordSeparators);
    if (begin == std::string_view::npos) return {};
    const std::size_t end = std::min(text.find_first_of(kWordSeparators, begin), text.size());
    return text.substr(begin, std::min(end - begin, kLongestWord));
}

std::unique_ptr<SearchNode> build_expression(const ExpressionTerm& term) {
    std::vector<const ExpressionTerm*> parts = parts_of(term);
    const auto first_text =
        std::find_if(parts.begin(), parts.end(),
                     [](const ExpressionTerm* part) { return part->kind == Kind::text; });
    if (first_text == parts.end()) return node_for(term);

    const std::string& text = (*first_text)->text;
    const std::string word(first_whole_word(text));
    Node node = std::make_unique<SN_Substring>(word);
    if (word == text) parts.erase(first_text);  // otherwise the whole text is still to be checked

    // What is denied hangs below an "and": a server looks for its keyword through those only.
    std::vector<const ExpressionTerm*> denied;
    for (const ExpressionTerm* part : parts) {
        if (part->kind == Kind::none_of) {
            denied.push_back(part);
        } else {
            node = combined(CombineOp::kAnd, std::move(node), node_for(*part));
        }
    }
    if (denied.empty()) return node;
    return combined(CombineOp::kAnd, std::move(node), conjunction(nullptr, denied));
}

}  // namespace vorrim::cli
