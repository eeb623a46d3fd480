#pragma once
// The nodes of a search expression. One expression is one tree; each node knows its verbs:
//
//     SN_Operator 0 ──┬─ left   SN_Substring "sky"                some text tag contains sky
//                     └─ right  SN_IntTagCompare 02 > 1000        the tag named 02 is above 1000
//
// Wire form   Prefix order: a type byte (NodeKind), the fields, and for an operator its children,
//             left first. Integers little-endian, texts counted.
//
//     00 op  left right            SN_Operator
//     01 text                      SN_Substring            lowered when read
//     02 text name                 SN_StringTagCompare     text lowered when read, name as it is
//     03 value(u32) op name        SN_IntTagCompare
//     04                           SN_All
//
// Ownership   An operator owns its children. Nodes are built once and then only read, except for
//             extract_keyword, which rebuilds the top of a tree in place.
// Threads     Const operations may run in several threads at once; there is no lock inside.
// Depth       Trees may be thousands of nodes deep on either side (a filter of many terms leans to
//             the left, a text of many words to the right). No verb recurses: SN_Operator walks the
//             operators below it in loops, and only leaves are called.
// Cost        evaluate allocates nothing in a tree whose longest path has at most kInlineDepth
//             operators, which holds for every tree that came from the network.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "base/file/kx_memory_file.h"
#include "meta/RecordView.h"

namespace vorrim {

// The type byte on the wire.
enum class NodeKind : std::uint8_t {
    combine = 0,
    substring = 1,
    string_tag_compare = 2,
    int_tag_compare = 3,
    all = 4,
};

// What SN_Operator does with its children. Any other code is kept and written as it came, is always
// false, and is reported each time it is evaluated.
namespace CombineOp {
inline constexpr std::int32_t kAnd = 0;
inline constexpr std::int32_t kOr = 1;
inline constexpr std::int32_t kAndNot = 2;
inline constexpr std::int32_t kExclusiveOr = 3;
inline constexpr std::int32_t kNotAnd = 4;  // not left, and right
}  // namespace CombineOp

// How SN_IntTagCompare compares. Other codes: as above.
namespace CompareOp {
inline constexpr std::int32_t kEqual = 0;
inline constexpr std::int32_t kGreater = 1;
inline constexpr std::int32_t kLess = 2;
inline constexpr std::int32_t kGreaterOrEqual = 3;
inline constexpr std::int32_t kLessOrEqual = 4;
inline constexpr std::int32_t kNotEqual = 5;
}  // namespace CompareOp

class SearchNode {
public:
    // What set_value takes: a text for the text kinds, a number for SN_IntTagCompare.
    using Value = std::variant<std::string_view, std::int32_t>;

    virtual ~SearchNode() = default;
    SearchNode(const SearchNode&) = delete;
    SearchNode& operator=(const SearchNode&) = delete;

    [[nodiscard]] NodeKind kind() const noexcept { return kind_; }

    [[nodiscard]] virtual std::unique_ptr<SearchNode> clone() const = 0;

    // Does the record match? Prints one error line for each unknown operation that is met, in the
    // order of evaluation: left before right, and no side that cannot change the result.
    [[nodiscard]] virtual bool evaluate(RecordView record) const = 0;

    // Takes the first plain word that every match must contain out of the tree and puts it into
    // `keyword`, which is empty before and may stay so. `self` is this node; what comes back takes
    // its place, none when nothing is left of it.
    [[nodiscard]] virtual std::unique_ptr<SearchNode> extract_keyword(
        std::unique_ptr<SearchNode> self, std::string& keyword);

    // Appends the wire form. False when an operator lacks a child; such an operator writes nothing.
    // A stream that cannot grow raises kx_err.
    virtual bool write(kx_memory_file& to) const = 0;

    // Reads what follows the type byte, without the children of an operator. A stream that ends
    // too early raises kx_err.
    virtual void read(kx_memory_file& from) = 0;

    // Bytes that write appends.
    [[nodiscard]] virtual std::int32_t wire_size() const = 0;

    // Kinds without such a value ignore it.
    virtual void set_value(const Value& value);

    // Relative cost of evaluation.
    [[nodiscard]] virtual std::int32_t weight() const = 0;

    // Appends the printed form.
    virtual void print(std::string& buffer) const = 0;

protected:
    explicit SearchNode(NodeKind kind) noexcept : kind_(kind) {}

private:
    const NodeKind kind_;
};

// The node as the given kind, or null: `if (const auto* all = node_as<SN_All>(node))`. Null in,
// null out.
template <class Kind>
[[nodiscard]] const Kind* node_as(const SearchNode* node) noexcept {
    return node && node->kind() == Kind::kKind ? static_cast<const Kind*>(node) : nullptr;
}
template <class Kind>
[[nodiscard]] Kind* node_as(SearchNode* node) noexcept {
    return node && node->kind() == Kind::kKind ? static_cast<Kind*>(node) : nullptr;
}

class SN_Operator final : public SearchNode {
public:
    static constexpr NodeKind kKind = NodeKind::combine;
    // Operators on one path that evaluate handles without allocating.
    static constexpr std::size_t kInlineDepth = 256;

    // A missing child never matches, prints as nothing and keeps the operator from being written.
    explicit SN_Operator(std::int32_t op = CombineOp::kAnd,
                         std::unique_ptr<SearchNode> left = nullptr,
                         std::unique_ptr<SearchNode> right = nullptr) noexcept;
    ~SN_Operator() override;

    [[nodiscard]] std::int32_t op() const noexcept { return op_; }
    [[nodiscard]] const SearchNode* left() const noexcept { return left_.get(); }
    [[nodiscard]] const SearchNode* right() const noexcept { return right_.get(); }
    void set_left(std::unique_ptr<SearchNode> node) noexcept { left_ = std::move(node); }
    void set_right(std::unique_ptr<SearchNode> node) noexcept { right_ = std::move(node); }
    [[nodiscard]] bool complete() const noexcept { return left_ && right_; }
    [[nodiscard]] bool known() const noexcept;

    [[nodiscard]] std::unique_ptr<SearchNode> clone() const override;
    [[nodiscard]] bool evaluate(RecordView record) const override;
    // Only through chains of kAnd, left before right; any other operator stays as it is.
    [[nodiscard]] std::unique_ptr<SearchNode> extract_keyword(std::unique_ptr<SearchNode> self,
                                                              std::string& keyword) override;
    bool write(kx_memory_file& to) const override;
    void read(kx_memory_file& from) override;
    [[nodiscard]] std::int32_t wire_size() const override;
    [[nodiscard]] std::int32_t weight() const override;
    void print(std::string& buffer) const override;

private:
    std::int32_t op_;
    std::unique_ptr<SearchNode> left_;
    std::unique_ptr<SearchNode> right_;
};

// Some text tag contains the text. Only the tag is folded to lower case: a capital in the node's
// own text never matches.
class SN_Substring final : public SearchNode {
public:
    static constexpr NodeKind kKind = NodeKind::substring;

    explicit SN_Substring(std::string text = {}) noexcept;
    [[nodiscard]] const std::string& text() const noexcept { return text_; }

    [[nodiscard]] std::unique_ptr<SearchNode> clone() const override;
    [[nodiscard]] bool evaluate(RecordView record) const override;
    // The first of the blank-separated words becomes the keyword; the others, each a node of its
    // own, remain as a chain of kAnd with the last word on top.
    [[nodiscard]] std::unique_ptr<SearchNode> extract_keyword(std::unique_ptr<SearchNode> self,
                                                              std::string& keyword) override;
    bool write(kx_memory_file& to) const override;
    void read(kx_memory_file& from) override;
    [[nodiscard]] std::int32_t wire_size() const override;
    void set_value(const Value& value) override;
    [[nodiscard]] std::int32_t weight() const override { return 10; }
    void print(std::string& buffer) const override;

private:
    std::string text_;
};

// Some text tag of exactly this name contains the text, folded as above.
class SN_StringTagCompare final : public SearchNode {
public:
    static constexpr NodeKind kKind = NodeKind::string_tag_compare;

    explicit SN_StringTagCompare(std::string text = {}, std::string tag_name = {}) noexcept;
    [[nodiscard]] const std::string& text() const noexcept { return text_; }
    [[nodiscard]] const std::string& tag_name() const noexcept { return tag_name_; }

    [[nodiscard]] std::unique_ptr<SearchNode> clone() const override;
    [[nodiscard]] bool evaluate(RecordView record) const override;
    bool write(kx_memory_file& to) const override;
    void read(kx_memory_file& from) override;
    [[nodiscard]] std::int32_t wire_size() const override;
    void set_value(const Value& value) override;
    [[nodiscard]] std::int32_t weight() const override { return 3; }
    void print(std::string& buffer) const override;

private:
    std::string text_;
    std::string tag_name_;
};

// Some integer tag of exactly this name compares so with the value, both taken as signed.
class SN_IntTagCompare final : public SearchNode {
public:
    static constexpr NodeKind kKind = NodeKind::int_tag_compare;

    explicit SN_IntTagCompare(std::int32_t value = 0, std::int32_t op = CompareOp::kEqual,
                              std::string tag_name = {}) noexcept;
    [[nodiscard]] std::int32_t value() const noexcept { return value_; }
    [[nodiscard]] std::int32_t op() const noexcept { return op_; }
    [[nodiscard]] const std::string& tag_name() const noexcept { return tag_name_; }
    [[nodiscard]] bool known() const noexcept;

    [[nodiscard]] std::unique_ptr<SearchNode> clone() const override;
    [[nodiscard]] bool evaluate(RecordView record) const override;
    bool write(kx_memory_file& to) const override;
    void read(kx_memory_file& from) override;
    [[nodiscard]] std::int32_t wire_size() const override;
    void set_value(const Value& value) override;
    [[nodiscard]] std::int32_t weight() const override { return 1; }
    void print(std::string& buffer) const override;

private:
    [[nodiscard]] bool holds_for(std::int32_t tag_value) const;

    std::int32_t value_;
    std::int32_t op_;
    std::string tag_name_;
};

// Every record.
class SN_All final : public SearchNode {
public:
    static constexpr NodeKind kKind = NodeKind::all;

    SN_All() noexcept : SearchNode(kKind) {}

    [[nodiscard]] std::unique_ptr<SearchNode> clone() const override;
    [[nodiscard]] bool evaluate(RecordView) const override { return true; }
    bool write(kx_memory_file& to) const override;
    void read(kx_memory_file&) override {}
    [[nodiscard]] std::int32_t wire_size() const override;
    [[nodiscard]] std::int32_t weight() const override { return 0; }
    void print(std::string& buffer) const override;
};

}  // namespace vorrim
