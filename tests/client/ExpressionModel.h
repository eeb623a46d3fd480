#pragma once
// Expressions as plainly as their rules can be said: recursion over values. Slow, and shares
// nothing with what it is compared to.
#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/wire/harness/Wire.h"

namespace vorrim::test {

using Lines = std::vector<std::string>;

inline std::string folded(std::string text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + ('a' - 'A'));
    return text;
}

// An expression; `children` has two of them when kind is 0.
struct ModelNode {
    int kind = 4;
    int op = 0;
    std::int32_t number = 0;
    std::string text;
    std::string name;
    std::vector<ModelNode> children;

    [[nodiscard]] wire::Bytes encode() const {
        if (kind == 0)
            return wire::joined(static_cast<wire::Op>(op), children[0].encode(),
                                children[1].encode());
        if (kind == 1) return wire::words(text);
        if (kind == 2) return wire::tag_contains(name, text);
        if (kind == 3)
            return wire::tag_is(name, static_cast<wire::Is>(op),
                                static_cast<std::uint32_t>(number));
        return wire::anything();
    }

    bool evaluate(const wire::Record& record, Lines& lines) const {
        if (kind == 0) return combine(record, lines);
        if (kind == 4) return true;
        return std::ranges::any_of(record.tags, [&](const wire::Tag& tag) {
            if (kind == 1) return tag.type == 2 && is_in(tag.text);
            if (tag.type != kind || tag.name == "n" || tag.name != name) return false;
            return kind == 2 ? is_in(tag.text)
                             : compare(static_cast<std::int32_t>(tag.number), lines);
        });
    }

private:
    [[nodiscard]] bool is_in(const std::string& value) const {
        return folded(value).find(folded(text)) != std::string::npos;
    }
    bool compare(std::int32_t value, Lines& lines) const {
        const bool results[] = {value == number, value > number,  value < number,
                                value >= number, value <= number, value != number};
        if (op < 6) return results[op];
        lines.emplace_back("Unknown Operation in SN_IntTagCompare");
        return false;
    }
    bool combine(const wire::Record& record, Lines& lines) const {
        if (op > 4) {
            lines.emplace_back("Unknown Operation in Search");
            return false;
        }
        const bool left = children[0].evaluate(record, lines);
        const auto right = [&] { return children[1].evaluate(record, lines); };
        return op == 0   ? left && right()
               : op == 1 ? left || right()
               : op == 2 ? left && !right()
               : op == 3 ? left != right()
                         : !left && right();
    }
};

// Texts cut into runs of other characters, at most 255 long.
inline std::vector<std::string> model_words(const std::string& text,
                                            const std::string& separators) {
    std::vector<std::string> words(1);
    for (const char c : text) {
        if (separators.find(c) != std::string::npos || words.back().size() == 255)
            words.emplace_back();
        if (separators.find(c) == std::string::npos) words.back() += c;
    }
    std::erase(words, "");
    return words;
}

struct ModelSearch {
    std::optional<ModelNode> root;
    std::string keyword;
    std::int32_t position = -1;
    std::int32_t offset = 0;

    void extract() {
        if (!keyword.empty()) return;
        root = extract(*root);
        if (!root) root = ModelNode{};
    }

private:
    std::optional<ModelNode> extract(ModelNode node) {
        if (node.kind == 0 && node.op == 0) {
            for (std::size_t side = 0; side < 2 && keyword.empty(); ++side) {
                auto rest = extract(node.children[side]);
                if (!rest) return node.children[1 - side];
                node.children[side] = *rest;
            }
            return node;
        }
        if (node.kind != 1) return node;
        const std::vector<std::string> words = model_words(folded(node.text), " ");
        if (words.empty()) return std::nullopt;
        keyword = words[0];
        std::optional<ModelNode> chain;
        for (std::size_t i = 1; i < words.size(); ++i) {
            ModelNode word{1, 0, 0, words[i], "", {}};
            chain = chain ? ModelNode{0, 0, 0, "", "", {word, *chain}} : word;
        }
        return chain;
    }
};

}  // namespace vorrim::test
