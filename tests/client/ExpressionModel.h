#pragma once
// Records and expressions as plainly as their rules can be said: recursion over values. Slow, and
// shares nothing with what it is compared to but the encoding of bytes.
#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vorrim::test {

using Bytes = std::string;
using Lines = std::vector<std::string>;

inline Bytes little_endian(std::uint32_t value, int width) {
    Bytes bytes;
    for (int i = 0; i < width; ++i)
        bytes += static_cast<char>(value >> (8 * i) & 0xFF);
    return bytes;
}

inline Bytes counted(const std::string& text) {
    return little_endian(static_cast<std::uint32_t>(text.size()), 2) + text;
}

inline std::string folded(std::string text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + ('a' - 'A'));
    return text;
}

struct ModelTag {
    int type = 3;  // 1 hash, 2 text, 3 integer
    std::string name;
    std::string value;  // the text, or the 16 bytes
    std::uint32_t number = 0;
    std::string lowered = folded(value);

    [[nodiscard]] bool is(int wanted_type, const std::string& wanted_name) const {
        return type == wanted_type && name != "n" && name == wanted_name;
    }
    [[nodiscard]] Bytes encode() const {
        return static_cast<char>(type) + counted(name) +
               (type == 1   ? value
                : type == 2 ? counted(value)
                            : little_endian(number, 4));
    }
};

struct ModelRecord {
    Bytes hash;
    std::uint32_t id = 0;
    std::uint32_t port = 0;
    std::vector<ModelTag> tags;

    [[nodiscard]] Bytes encode() const {
        Bytes bytes = hash + little_endian(id, 4) + little_endian(port, 2) +
                      little_endian(static_cast<std::uint32_t>(tags.size()), 4);
        for (const ModelTag& tag : tags)
            bytes += tag.encode();
        return bytes;
    }
    void set_availability(std::uint32_t sources) {
        const std::string name = "\x15";
        for (ModelTag& tag : tags) {
            if (tag.name != name) continue;
            tag = {3, name, "", sources, ""};
            return;
        }
        tags.push_back({3, name, "", sources, ""});
    }
};

// An expression; `children` has two of them when kind is 0.
struct ModelNode {
    int kind = 4;
    int op = 0;
    std::int32_t number = 0;
    std::string text;
    std::string name;
    std::vector<ModelNode> children;

    [[nodiscard]] Bytes encode() const {
        const Bytes begin(1, static_cast<char>(kind));
        if (kind == 0)
            return begin + static_cast<char>(op) + children[0].encode() + children[1].encode();
        if (kind == 1) return begin + counted(text);
        if (kind == 2) return begin + counted(text) + counted(name);
        if (kind == 4) return begin;
        return begin + little_endian(static_cast<std::uint32_t>(number), 4) +
               static_cast<char>(op) + counted(name);
    }

    // What reading the wire form does to the texts to be found.
    void lower() {
        text = folded(text);
        for (ModelNode& child : children)
            child.lower();
    }

    bool evaluate(const ModelRecord& record, Lines& lines) const {
        if (kind == 0) return combine(record, lines);
        if (kind == 4) return true;
        return std::ranges::any_of(record.tags, [&](const ModelTag& tag) {
            if (kind == 1) return tag.type == 2 && contains(tag);
            if (kind == 2) return tag.is(2, name) && contains(tag);
            return tag.is(3, name) && compare(static_cast<std::int32_t>(tag.number), lines);
        });
    }

private:
    [[nodiscard]] bool contains(const ModelTag& tag) const {
        return tag.lowered.find(text) != std::string::npos;
    }
    bool compare(std::int32_t value, Lines& lines) const {
        const bool results[] = {value == number, value > number,  value < number,
                                value >= number, value <= number, value != number};
        if (op < 6) return results[op];
        lines.emplace_back("Unknown Operation in SN_IntTagCompare");
        return false;
    }
    bool combine(const ModelRecord& record, Lines& lines) const {
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
