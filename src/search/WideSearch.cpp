#include "search/WideSearch.h"

#include <algorithm>

#include "search/UnknownOperations.h"
#include "search/required_sides.h"
#include "search/short_circuit.h"

namespace vorrim {

namespace {

constexpr std::uint32_t kAnyTag = 0;

// Does one of the values, which ascend, compare so?
bool any_holds(const std::vector<std::int32_t>& values, std::int32_t op, std::int32_t than) {
    if (values.empty()) return false;
    switch (op) {
        case CompareOp::kEqual:
            return std::ranges::binary_search(values, than);
        case CompareOp::kGreater:
            return values.back() > than;
        case CompareOp::kLess:
            return values.front() < than;
        case CompareOp::kGreaterOrEqual:
            return values.back() >= than;
        case CompareOp::kLessOrEqual:
            return values.front() <= than;
        case CompareOp::kNotEqual:
            return values.front() != than || values.back() != than;
        default:
            return false;
    }
}

}  // namespace

WideSearch::WideSearch(const SearchNode& root) : may_report_(vorrim::may_report(root)) {
    const std::vector<NeedleAutomaton::Needle> needles = add_nodes(root);
    values_.resize(nodes_.size());
    integers_.resize(groups_.size() + 1);
    automaton_.emplace(needles, static_cast<std::uint32_t>(integers_.size()));
}

// Returns the texts, whose places the nodes know.
std::vector<NeedleAutomaton::Needle> WideSearch::add_nodes(const SearchNode& root) {
    constexpr std::size_t kNoParent = ~std::size_t{0};
    struct Open {
        const SearchNode* node;
        std::size_t parent;  // of a right side
    };
    std::vector<NeedleAutomaton::Needle> needles;
    const auto add_text = [&needles](std::uint32_t group, const std::string& text) {
        needles.push_back({group, text});
        return Node{Kind::text, 0, 0, static_cast<std::uint32_t>(needles.size() - 1)};
    };
    std::vector<Open> open{{&root, kNoParent}};
    while (!open.empty()) {
        const auto [node, parent] = open.back();
        open.pop_back();
        if (parent != kNoParent) nodes_[parent].at = static_cast<std::uint32_t>(nodes_.size());
        if (const auto* combine = node_as<SN_Operator>(node)) {
            if (combine->known()) {
                open.push_back({combine->right(), nodes_.size()});
                open.push_back({combine->left(), kNoParent});
            }
            const Kind kind = combine->known() ? Kind::combine : Kind::unknown_combine;
            nodes_.push_back({kind, combine->op(), 0, 0});
        } else if (const auto* substring = node_as<SN_Substring>(node)) {
            nodes_.push_back(add_text(kAnyTag, substring->text()));
        } else if (const auto* named = node_as<SN_StringTagCompare>(node)) {
            nodes_.push_back(add_text(group_of(named->tag_name()), named->text()));
        } else if (const auto* integer = node_as<SN_IntTagCompare>(node)) {
            const Kind kind = integer->known() ? Kind::integer : Kind::unknown_integer;
            nodes_.push_back(
                {kind, integer->op(), integer->value(), group_of(integer->tag_name())});
        } else {
            nodes_.push_back({node != nullptr ? Kind::all : Kind::nothing, 0, 0, 0});
        }
    }
    return needles;
}

std::uint32_t WideSearch::group_of(const std::string& name) {
    return groups_.try_emplace(name, static_cast<std::uint32_t>(groups_.size() + 1)).first->second;
}

void WideSearch::look_at(RecordView record) {
    automaton_->forget();
    for (Integers& values : integers_)
        values.clear();
    for (const TagView& tag : record.tags()) {
        if (tag.type == TagType::text) automaton_->scan(kAnyTag, tag.text());
        const auto group = tag.named ? groups_.find(tag.name) : groups_.end();
        if (group == groups_.end()) continue;
        if (tag.type == TagType::text)
            automaton_->scan(group->second, tag.text());
        else if (tag.type == TagType::integer)
            integers_[group->second].push_back(tag.integer());
    }
    for (Integers& values : integers_)
        std::ranges::sort(values);
}

bool WideSearch::matches(RecordView record) {
    look_at(record);
    for (std::size_t node = nodes_.size(); node-- > 0;)
        values_[node] = value_of(node);
    if (may_report_) report();
    return values_.front() != 0;
}

// What comes behind it has its value already.
bool WideSearch::value_of(std::size_t at) const {
    const Node& node = nodes_[at];
    switch (node.kind) {
        case Kind::nothing:
        case Kind::unknown_integer:
        case Kind::unknown_combine:
            return false;
        case Kind::all:
            return true;
        case Kind::text:
            return automaton_->found(node.at);
        case Kind::integer:
            return any_holds(integers_[node.at], node.op, node.value);
        case Kind::combine:
            break;
    }
    const Verdict verdict = after_left(node.op, values_[at + 1] != 0);
    if (verdict.rest == Rest::nothing) return verdict.value;
    return (values_[node.at] != 0) != (verdict.rest == Rest::right_negated);
}

// As evaluating one after the other would have met them: left before right, and no side that cannot
// change the result.
void WideSearch::report() const {
    std::vector<std::size_t> open{0};
    while (!open.empty()) {
        const std::size_t at = open.back();
        open.pop_back();
        const Node& node = nodes_[at];
        if (node.kind == Kind::unknown_integer) {
            for (std::size_t tags = integers_[node.at].size(); tags > 0; --tags)
                report_unknown(UnknownOperation::comparison);
        } else if (node.kind == Kind::unknown_combine) {
            report_unknown(UnknownOperation::combination);
        } else if (node.kind == Kind::combine) {
            if (after_left(node.op, values_[at + 1] != 0).rest != Rest::nothing)
                open.push_back(node.at);
            open.push_back(at + 1);
        }
    }
}

}  // namespace vorrim
