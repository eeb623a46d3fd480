#pragma once
// The index as plainly as its rules can be said: lists of decoded records, walked from front to
// back. Slow, and shares nothing with the index but the encoding of bytes.
#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
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
        Bytes bytes(1, static_cast<char>(kind));
        switch (kind) {
            case 0:
                return bytes + static_cast<char>(op) + children[0].encode() + children[1].encode();
            case 1:
                return bytes + counted(text);
            case 2:
                return bytes + counted(text) + counted(name);
            case 3:
                return bytes + little_endian(static_cast<std::uint32_t>(number), 4) +
                       static_cast<char>(op) + counted(name);
            default:
                return bytes;
        }
    }

    // What reading the wire form does to the texts to be found.
    void lower() {
        text = folded(text);
        for (ModelNode& child : children)
            child.lower();
    }

    bool evaluate(const ModelRecord& record, Lines& lines) const {
        const auto any_tag = [&](auto&& test) {
            return std::any_of(record.tags.begin(), record.tags.end(), test);
        };
        switch (kind) {
            case 0:
                return combine(record, lines);
            case 1:
                return any_tag([&](const ModelTag& tag) { return tag.type == 2 && contains(tag); });
            case 2:
                return any_tag(
                    [&](const ModelTag& tag) { return tag.is(2, name) && contains(tag); });
            case 3:
                return any_tag([&](const ModelTag& tag) {
                    return tag.is(3, name) && compare(static_cast<std::int32_t>(tag.number), lines);
                });
            default:
                return true;
        }
    }

private:
    [[nodiscard]] bool contains(const ModelTag& tag) const {
        return tag.lowered.find(text) != std::string::npos;
    }
    bool compare(std::int32_t value, Lines& lines) const {
        switch (op) {
            case 0:
                return value == number;
            case 1:
                return value > number;
            case 2:
                return value < number;
            case 3:
                return value >= number;
            case 4:
                return value <= number;
            case 5:
                return value != number;
            default:
                lines.emplace_back("Unknown Operation in SN_IntTagCompare");
                return false;
        }
    }
    bool combine(const ModelRecord& record, Lines& lines) const {
        if (op > 4) {
            lines.emplace_back("Unknown Operation in Search");
            return false;
        }
        const bool left = children[0].evaluate(record, lines);
        switch (op) {
            case 0:
                return left && children[1].evaluate(record, lines);
            case 1:
                return left || children[1].evaluate(record, lines);
            case 2:
                return left && !children[1].evaluate(record, lines);
            case 3:
                return left != children[1].evaluate(record, lines);
            default:
                return !left && children[1].evaluate(record, lines);
        }
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

inline std::uint32_t model_keyword_hash(const std::string& word) {
    std::int64_t h = 0;  // kept within the range of a signed 32-bit number
    const auto wrap = [](std::int64_t v) {
        return std::int64_t{static_cast<std::int32_t>(static_cast<std::uint32_t>(v))};
    };
    const auto shifted_left = [&](std::int64_t v, int by) {
        return wrap(v * (std::int64_t{1} << by));
    };
    for (const char c : folded(word)) {
        h = wrap(h + static_cast<signed char>(c));
        h = wrap(h + shifted_left(h, 10));
        h ^= h >> 6;
    }
    h = wrap(h + shifted_left(h, 3));
    h ^= h >> 11;
    h = wrap(h + shifted_left(h, 15));
    return h == 0 ? 1 : static_cast<std::uint32_t>(h);
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
            auto left = extract(node.children[0]);
            if (!left) return node.children[1];
            node.children[0] = *left;
            if (!keyword.empty()) return node;
            auto right = extract(node.children[1]);
            if (!right) return node.children[0];
            node.children[1] = *right;
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

class ModelIndex {
    struct Entry {
        ModelRecord record;
        std::vector<std::pair<std::uint32_t, std::uint32_t>> sources;
        std::vector<std::uint32_t> words;
        [[nodiscard]] auto reachable() const {
            return std::count_if(sources.begin(), sources.end(),
                                 [](const auto& s) { return s.first > 0xFFFFFF; });
        }
    };

public:
    ModelIndex(bool keywords, std::uint32_t buckets) : keywords_(keywords), buckets_(buckets) {}

    std::vector<ModelNode> filters;
    Lines lines;  // what evaluating printed

    void publish(const std::vector<ModelRecord>& records, std::uint32_t id, std::uint32_t port) {
        for (ModelRecord record : records) {
            record.id = id;
            record.port = port;
            if (std::any_of(filters.begin(), filters.end(),
                            [&](const ModelNode& f) { return f.evaluate(record, lines); }))
                continue;
            ++source_total_;
            Entry* entry = find(record.hash);
            const bool is_new = entry == nullptr;
            if (is_new) {
                auto& bucket = table_[bucket_of(record.hash)];
                bucket.push_back(std::make_unique<Entry>());
                entry = bucket.back().get();
                entry->record = record;
            }
            entry->sources.emplace_back(id, port);
            entry->record.set_availability(static_cast<std::uint32_t>(entry->sources.size()));
            if (is_new && keywords_) add_words(*entry);
        }
    }

    void remove_client(std::uint32_t id) {
        for (auto bucket = table_.begin(); bucket != table_.end();) {
            for (auto& entry : bucket->second) {
                const auto removed =
                    std::erase_if(entry->sources, [&](const auto& s) { return s.first == id; });
                source_total_ -= static_cast<int>(removed);
                entry->record.set_availability(static_cast<std::uint32_t>(entry->sources.size()));
                if (!entry->sources.empty()) continue;
                for (const std::uint32_t word : entry->words) {
                    std::erase(lists_[word], entry.get());
                    if (lists_[word].empty()) lists_.erase(word);
                }
            }
            std::erase_if(bucket->second, [](const auto& e) { return e->sources.empty(); });
            bucket = bucket->second.empty() ? table_.erase(bucket) : std::next(bucket);
        }
    }

    [[nodiscard]] Bytes sources(const Bytes& hash) const {
        const Entry* entry = find(hash);
        if (entry == nullptr) return {};
        const std::size_t count = std::min<std::size_t>(entry->sources.size(), 230);
        Bytes bytes = hash + static_cast<char>(count);
        for (std::size_t i = 0; i < count; ++i)
            bytes += little_endian(entry->sources[i].first, 4) +
                     little_endian(entry->sources[i].second, 2);
        return bytes;
    }

    std::vector<Bytes> search(ModelSearch& search, std::int32_t limit, std::uint32_t asker) {
        if (!keywords_) return scan(search, limit, asker);
        search.extract();
        if (search.keyword.empty()) return scan(search, limit, asker);
        std::vector<Bytes> found;
        const std::int32_t saved = std::exchange(search.position, -1);
        const auto list = lists_.find(model_keyword_hash(search.keyword));
        if (list == lists_.end()) return found;
        for (std::int32_t i = 0; i < static_cast<std::int32_t>(list->second.size()); ++i) {
            const Entry& entry = *list->second[static_cast<std::size_t>(i)];
            if (i <= saved) continue;
            if (asker <= 0xFFFFFF && entry.reachable() == 0) continue;
            if (!search.root->evaluate(entry.record, lines)) continue;
            found.push_back(entry.record.encode());
            if (static_cast<std::int32_t>(found.size()) > limit) {
                search.position = i;
                break;
            }
        }
        return found;
    }

    [[nodiscard]] int source_total() const { return source_total_; }
    [[nodiscard]] std::size_t keyword_total() const { return lists_.size(); }
    [[nodiscard]] std::size_t file_total() const {
        std::size_t total = 0;
        for (const auto& [number, bucket] : table_)
            total += bucket.size();
        return total;
    }
    [[nodiscard]] std::size_t longest_list() const {
        std::size_t longest = 0;
        for (const auto& [word, list] : lists_)
            longest = std::max(longest, list.size());
        return longest;
    }

private:
    [[nodiscard]] std::uint32_t bucket_of(const Bytes& hash) const {
        std::uint32_t first = 0;
        for (std::size_t i = 4; i-- > 0;)
            first = first << 8 | static_cast<unsigned char>(hash[i]);
        return first % buckets_;
    }
    [[nodiscard]] Entry* find(const Bytes& hash) const {
        const auto bucket = table_.find(bucket_of(hash));
        if (bucket == table_.end()) return nullptr;
        for (const auto& entry : bucket->second)
            if (entry->record.hash == hash) return entry.get();
        return nullptr;
    }
    void add_words(Entry& entry) {
        for (const ModelTag& tag : entry.record.tags) {
            if (tag.type != 2) continue;
            for (const std::string& word : model_words(tag.value, " ,_-.(){}[]!?<>:\\/\t\n")) {
                if (entry.words.size() == 10) return;
                const std::uint32_t hash = model_keyword_hash(word);
                if (std::count(entry.words.begin(), entry.words.end(), hash) != 0) continue;
                entry.words.push_back(hash);
                lists_[hash].push_back(&entry);
            }
        }
    }
    std::vector<Bytes> scan(ModelSearch& search, std::int32_t limit, std::uint32_t asker) {
        std::vector<Bytes> found;
        const auto first = static_cast<std::uint32_t>(std::max(search.position, 0));
        for (auto bucket = table_.lower_bound(first); bucket != table_.end(); ++bucket) {
            const std::size_t start =
                bucket->first == first ? static_cast<std::size_t>(search.offset) : 0;
            for (std::size_t i = start; i < bucket->second.size(); ++i) {
                const Entry& entry = *bucket->second[i];
                if (asker < 0xFFFFFF && entry.reachable() == 0) continue;
                if (!search.root->evaluate(entry.record, lines)) continue;
                found.push_back(entry.record.encode());
                if (static_cast<std::int32_t>(found.size()) < limit) continue;
                search.position = static_cast<std::int32_t>(bucket->first);
                search.offset = static_cast<std::int32_t>(i) + 1;
                return found;
            }
        }
        search.position = -1;
        search.offset = 0;
        return found;
    }

    const bool keywords_;
    const std::uint32_t buckets_;
    int source_total_ = 0;
    std::map<std::uint32_t, std::vector<std::unique_ptr<Entry>>> table_;
    std::map<std::uint32_t, std::vector<Entry*>> lists_;
};

}  // namespace vorrim::test
