#include "search/SearchNode.h"

#include <array>
#include <vector>

#include "base/file/primitives.h"
#include "base/string/kx_strtok.h"
#include "base/string/strings.h"
#include "search/SpillStack.h"
#include "search/UnknownOperations.h"
#include "search/prefix_walk.h"
#include "search/short_circuit.h"

namespace vorrim {

namespace {

// Sizes of what the wire form is made of.
constexpr std::int32_t kTypeSize = 1;
constexpr std::int32_t kOpSize = 1;
constexpr std::int32_t kValueSize = 4;
constexpr std::int32_t kTextCountSize = 2;

std::int32_t text_size(std::string_view text) {
    return kTextCountSize + static_cast<std::int32_t>(text.size());
}

void write_kind(NodeKind kind, kx_memory_file& to) {
    write_8(to, static_cast<std::uint8_t>(kind));
}

std::string read_text(kx_memory_file& from) {
    return std::string(text_of(take_string(from)));
}

std::string read_lowered_text(kx_memory_file& from) {
    std::string text = read_text(from);
    kx_strlwr(text);
    return text;
}

bool contains(const TagView& tag, std::string_view text) {
    return kx_strstr_lower(tag.text(), text) != kx_npos;
}

}  // namespace

std::unique_ptr<SearchNode> SearchNode::extract_keyword(std::unique_ptr<SearchNode> self,
                                                        std::string&) {
    return self;
}

void SearchNode::set_value(const Value&) {}

// ---- SN_Operator ----

SN_Operator::SN_Operator(std::int32_t op, std::unique_ptr<SearchNode> left,
                         std::unique_ptr<SearchNode> right) noexcept
    : SearchNode(kKind), op_(op), left_(std::move(left)), right_(std::move(right)) {}

// Takes the tree apart where it stands: a left operator is rotated to the right until the left is a
// leaf, then the right operator hands up its children and goes. Each step shortens the left side
// or the tree, and the only nodes destroyed are leaves and operators without children.
SN_Operator::~SN_Operator() {
    for (;;) {
        if (auto* left = node_as<SN_Operator>(left_.get())) {
            auto rotated = std::move(left_);
            left_ = std::move(left->left_);
            left->left_ = std::move(left->right_);
            left->right_ = std::move(right_);
            right_ = std::move(rotated);
        } else if (auto* right = node_as<SN_Operator>(right_.get())) {
            const auto emptied = std::move(right_);
            left_ = std::move(right->left_);
            right_ = std::move(right->right_);
        } else {
            return;
        }
    }
}

bool SN_Operator::known() const noexcept {
    return op_ >= CombineOp::kAnd && op_ <= CombineOp::kNotAnd;
}

std::unique_ptr<SearchNode> SN_Operator::clone() const {
    struct Copy {
        const SearchNode* from;
        std::unique_ptr<SearchNode>* to;
    };
    std::unique_ptr<SearchNode> result;
    std::vector<Copy> open{{this, &result}};
    while (!open.empty()) {
        const auto [from, to] = open.back();
        open.pop_back();
        if (const auto* combine = node_as<SN_Operator>(from)) {
            auto copy = std::make_unique<SN_Operator>(combine->op_);
            open.push_back({combine->left(), &copy->left_});
            open.push_back({combine->right(), &copy->right_});
            *to = std::move(copy);
        } else if (from) {
            *to = from->clone();
        }
    }
    return result;
}

Verdict after_left(std::int32_t op, bool left) noexcept {
    switch (op) {
        case CombineOp::kAnd:
            return {false, left ? Rest::right : Rest::nothing};
        case CombineOp::kOr:
            return {true, left ? Rest::nothing : Rest::right};
        case CombineOp::kAndNot:
            return {false, left ? Rest::right_negated : Rest::nothing};
        case CombineOp::kExclusiveOr:
            return {false, left ? Rest::right_negated : Rest::right};
        case CombineOp::kNotAnd:
            return {false, left ? Rest::nothing : Rest::right};
        default:
            return {false, Rest::nothing};
    }
}

// An operator stands on the stack only while its left side is evaluated. Its right side takes its
// place, with a kNegate below it where the result is to be turned over, so that a chain to the
// right needs no room however long it is.
bool SN_Operator::evaluate(RecordView record) const {
    constexpr const SN_Operator* kNegate = nullptr;
    SpillStack<const SN_Operator*, kInlineDepth> open;
    const SearchNode* next = this;
    for (;;) {
        const auto* combine = node_as<SN_Operator>(next);
        for (; combine && combine->known(); combine = node_as<SN_Operator>(next)) {
            open.push(combine);
            next = combine->left();
        }
        bool value = false;
        if (combine)
            report_unknown(UnknownOperation::combination);
        else if (next)
            value = next->evaluate(record);

        for (Rest rest = Rest::nothing; rest == Rest::nothing;) {
            if (open.empty()) return value;
            const SN_Operator* above = open.pop();
            if (above == kNegate) {
                value = !value;
                continue;
            }
            const Verdict verdict = after_left(above->op_, value);
            value = verdict.value;
            rest = verdict.rest;
            next = above->right();
            if (rest != Rest::right_negated) continue;
            if (!open.empty() && open.top() == kNegate)
                open.pop();  // turned over twice
            else
                open.push(kNegate);
        }
    }
}

std::unique_ptr<SearchNode> SN_Operator::extract_keyword(std::unique_ptr<SearchNode> self,
                                                         std::string& keyword) {
    enum class Stage { enter, left_done, right_done };
    struct Step {
        std::unique_ptr<SearchNode>* slot;
        Stage stage;
    };
    std::vector<Step> open{{&self, Stage::enter}};
    while (!open.empty()) {
        auto& [slot_address, stage] = open.back();
        std::unique_ptr<SearchNode>& slot = *slot_address;
        auto* combine = node_as<SN_Operator>(slot.get());
        switch (stage) {
            case Stage::enter:
                if (combine && combine->op_ == CombineOp::kAnd) {
                    stage = Stage::left_done;
                    open.push_back({&combine->left_, Stage::enter});
                    continue;
                }
                if (slot && !combine) {
                    SearchNode& leaf = *slot;
                    slot = leaf.extract_keyword(std::move(slot), keyword);
                }
                break;
            case Stage::left_done:
                if (!combine->left_) {
                    slot = std::move(combine->right_);
                } else if (keyword.empty()) {
                    stage = Stage::right_done;
                    open.push_back({&combine->right_, Stage::enter});
                    continue;
                }
                break;
            case Stage::right_done:
                if (!combine->right_) slot = std::move(combine->left_);
                break;
        }
        open.pop_back();
    }
    return self;
}

bool SN_Operator::write(kx_memory_file& to) const {
    bool whole = true;
    prefix_walk(*this, [&](const SearchNode& node) {
        const auto* combine = node_as<SN_Operator>(&node);
        if (!combine) {
            whole = node.write(to) && whole;
            return Sides::neither;
        }
        if (!combine->complete()) {
            whole = false;
            return Sides::neither;
        }
        write_kind(kKind, to);
        write_8(to, static_cast<std::uint8_t>(combine->op_));
        return Sides::both;
    });
    return whole;
}

void SN_Operator::read(kx_memory_file& from) {
    op_ = read_8(from);
}

std::int32_t SN_Operator::wire_size() const {
    std::int32_t size = 0;
    prefix_walk(*this, [&](const SearchNode& node) {
        const auto* combine = node_as<SN_Operator>(&node);
        if (!combine) {
            size += node.wire_size();
            return Sides::neither;
        }
        if (!combine->complete()) return Sides::neither;
        size += kTypeSize + kOpSize;
        return Sides::both;
    });
    return size;
}

std::int32_t SN_Operator::weight() const {
    std::int32_t sum = 0;
    prefix_walk(*this, [&](const SearchNode& node) {
        if (!node_as<SN_Operator>(&node)) sum += node.weight();
        return Sides::both;
    });
    return sum;
}

void SN_Operator::print(std::string& buffer) const {
    // Indexed by op. The last, for kNotAnd and every code above it, has no character.
    constexpr std::array<std::string_view, 5> kOpTexts = {" & ", " | ", " ! ", " x ", " "};

    struct Piece {
        const SearchNode* node;
        std::string_view text;  // printed where there is no node
    };
    std::vector<Piece> open{{this, {}}};
    while (!open.empty()) {
        const Piece piece = open.back();
        open.pop_back();
        if (const auto* combine = node_as<SN_Operator>(piece.node)) {
            const auto op =
                static_cast<std::size_t>(combine->known() ? combine->op_ : CombineOp::kNotAnd);
            buffer += " ( ";
            open.push_back({nullptr, " ) "});
            open.push_back({combine->right(), {}});
            open.push_back({nullptr, kOpTexts[op]});
            open.push_back({combine->left(), {}});
        } else if (piece.node) {
            piece.node->print(buffer);
        } else {
            buffer += piece.text;
        }
    }
}

// ---- SN_Substring ----

SN_Substring::SN_Substring(std::string text) noexcept : SearchNode(kKind), text_(std::move(text)) {}

std::unique_ptr<SearchNode> SN_Substring::clone() const {
    return std::make_unique<SN_Substring>(text_);
}

bool SN_Substring::evaluate(RecordView record) const {
    for (const TagView& tag : record.tags())
        if (tag.type == TagType::text && contains(tag, text_)) return true;
    return false;
}

std::unique_ptr<SearchNode> SN_Substring::extract_keyword(std::unique_ptr<SearchNode>,
                                                          std::string& keyword) {
    constexpr std::size_t kLongestWord = 255;
    constexpr kx_char_set kBlank(" ");

    std::string_view token;
    std::int32_t at = kx_strtok(text_, kBlank, 0, token, kLongestWord);
    keyword = token;
    std::unique_ptr<SearchNode> chain;
    while ((at = kx_strtok(text_, kBlank, at, token, kLongestWord)) != 0) {
        auto further = std::make_unique<SN_Substring>(std::string(token));
        chain = chain ? std::make_unique<SN_Operator>(CombineOp::kAnd, std::move(further),
                                                      std::move(chain))
                      : std::unique_ptr<SearchNode>(std::move(further));
    }
    return chain;
}

bool SN_Substring::write(kx_memory_file& to) const {
    write_kind(kKind, to);
    write_string(text_, to);
    return true;
}

void SN_Substring::read(kx_memory_file& from) {
    text_ = read_lowered_text(from);
}

std::int32_t SN_Substring::wire_size() const {
    return kTypeSize + text_size(text_);
}

void SN_Substring::set_value(const Value& value) {
    if (const auto* text = std::get_if<std::string_view>(&value)) text_ = *text;
}

void SN_Substring::print(std::string& buffer) const {
    buffer += text_;
}

// ---- SN_StringTagCompare ----

SN_StringTagCompare::SN_StringTagCompare(std::string text, std::string tag_name) noexcept
    : SearchNode(kKind), text_(std::move(text)), tag_name_(std::move(tag_name)) {}

std::unique_ptr<SearchNode> SN_StringTagCompare::clone() const {
    return std::make_unique<SN_StringTagCompare>(text_, tag_name_);
}

bool SN_StringTagCompare::evaluate(RecordView record) const {
    for (const TagView& tag : record.tags())
        if (tag.type == TagType::text && tag.has_name(tag_name_) && contains(tag, text_))
            return true;
    return false;
}

bool SN_StringTagCompare::write(kx_memory_file& to) const {
    write_kind(kKind, to);
    write_string(text_, to);
    write_string(tag_name_, to);
    return true;
}

void SN_StringTagCompare::read(kx_memory_file& from) {
    text_ = read_lowered_text(from);
    tag_name_ = read_text(from);
}

std::int32_t SN_StringTagCompare::wire_size() const {
    return kTypeSize + text_size(text_) + text_size(tag_name_);
}

void SN_StringTagCompare::set_value(const Value& value) {
    if (const auto* text = std::get_if<std::string_view>(&value)) text_ = *text;
}

void SN_StringTagCompare::print(std::string& buffer) const {
    buffer.append(tag_name_).append("=").append(text_);
}

// ---- SN_IntTagCompare ----

SN_IntTagCompare::SN_IntTagCompare(std::int32_t value, std::int32_t op,
                                   std::string tag_name) noexcept
    : SearchNode(kKind), value_(value), op_(op), tag_name_(std::move(tag_name)) {}

bool SN_IntTagCompare::known() const noexcept {
    return op_ >= CompareOp::kEqual && op_ <= CompareOp::kNotEqual;
}

std::unique_ptr<SearchNode> SN_IntTagCompare::clone() const {
    return std::make_unique<SN_IntTagCompare>(value_, op_, tag_name_);
}

bool SN_IntTagCompare::evaluate(RecordView record) const {
    for (const TagView& tag : record.tags())
        if (tag.type == TagType::integer && tag.has_name(tag_name_) && holds_for(tag.integer()))
            return true;
    return false;
}

bool SN_IntTagCompare::holds_for(std::int32_t tag_value) const {
    switch (op_) {
        case CompareOp::kEqual:
            return tag_value == value_;
        case CompareOp::kGreater:
            return tag_value > value_;
        case CompareOp::kLess:
            return tag_value < value_;
        case CompareOp::kGreaterOrEqual:
            return tag_value >= value_;
        case CompareOp::kLessOrEqual:
            return tag_value <= value_;
        case CompareOp::kNotEqual:
            return tag_value != value_;
        default:
            report_unknown(UnknownOperation::comparison);
            return false;
    }
}

bool SN_IntTagCompare::write(kx_memory_file& to) const {
    write_kind(kKind, to);
    write_32(to, static_cast<std::uint32_t>(value_));
    write_8(to, static_cast<std::uint8_t>(op_));
    write_string(tag_name_, to);
    return true;
}

void SN_IntTagCompare::read(kx_memory_file& from) {
    value_ = static_cast<std::int32_t>(read_32(from));
    op_ = read_8(from);
    tag_name_ = read_text(from);
}

std::int32_t SN_IntTagCompare::wire_size() const {
    return kTypeSize + kValueSize + kOpSize + text_size(tag_name_);
}

void SN_IntTagCompare::set_value(const Value& value) {
    if (const auto* number = std::get_if<std::int32_t>(&value)) value_ = *number;
}

void SN_IntTagCompare::print(std::string& buffer) const {
    constexpr std::array<std::string_view, 6> kOpTexts = {"=", ">", "<", ">=", "<=", "!="};
    buffer += tag_name_;
    buffer += known() ? kOpTexts[static_cast<std::size_t>(op_)] : "ER";
    buffer += std::to_string(value_);
}

// ---- SN_All ----

std::unique_ptr<SearchNode> SN_All::clone() const {
    return std::make_unique<SN_All>();
}

bool SN_All::write(kx_memory_file& to) const {
    write_kind(kKind, to);
    return true;
}

std::int32_t SN_All::wire_size() const {
    return kTypeSize;
}

void SN_All::print(std::string& buffer) const {
    buffer += "*";
}

}  // namespace vorrim
