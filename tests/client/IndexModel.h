#pragma once
// The index as plainly as its rules can be said: lists of decoded records, walked from front to
// back. Slow, and shares nothing with the index.
#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/client/ExpressionModel.h"

namespace vorrim::test {

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

class ModelIndex {
    struct Entry {
        wire::Record record;
        std::vector<std::pair<std::uint32_t, std::uint16_t>> sources;
        std::vector<std::uint32_t> words;
        [[nodiscard]] auto reachable() const {
            return std::count_if(sources.begin(), sources.end(),
                                 [](const auto& s) { return s.first > 0xFFFFFF; });
        }
        void set_availability() {
            const wire::Tag tag =
                wire::int_tag(wire::kAvailability, static_cast<std::uint32_t>(sources.size()));
            const auto at = std::ranges::find(record.tags, tag.name, &wire::Tag::name);
            record.tags.insert(at == record.tags.end() ? at : record.tags.erase(at), tag);
        }
    };

public:
    ModelIndex(bool keywords, std::uint32_t buckets) : keywords_(keywords), buckets_(buckets) {}

    std::vector<ModelNode> filters;
    Lines lines;  // what evaluating printed

    void publish(const std::vector<wire::Record>& records, std::uint32_t id, std::uint16_t port) {
        for (wire::Record record : records) {
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
            entry->set_availability();
            if (is_new && keywords_) add_words(*entry);
        }
    }

    void remove_client(std::uint32_t id) {
        for (auto bucket = table_.begin(); bucket != table_.end();) {
            for (auto& entry : bucket->second) {
                const auto removed =
                    std::erase_if(entry->sources, [&](const auto& s) { return s.first == id; });
                source_total_ -= static_cast<int>(removed);
                entry->set_availability();
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

    [[nodiscard]] wire::Bytes sources(const wire::Hash& hash) const {
        const Entry* entry = find(hash);
        if (entry == nullptr) return {};
        const std::size_t count = std::min<std::size_t>(entry->sources.size(), 230);
        wire::Bytes bytes = hash.encode().u8(static_cast<std::uint32_t>(count));
        for (std::size_t i = 0; i < count; ++i)
            bytes.u32(entry->sources[i].first).u16(entry->sources[i].second);
        return bytes;
    }

    std::vector<wire::Record> search(ModelSearch& search, std::int32_t limit, std::uint32_t asker) {
        if (!keywords_) return scan(search, limit, asker);
        search.extract();
        if (search.keyword.empty()) return scan(search, limit, asker);
        std::vector<wire::Record> found;
        const std::int32_t saved = std::exchange(search.position, -1);
        const auto list = lists_.find(model_keyword_hash(search.keyword));
        if (list == lists_.end()) return found;
        for (std::int32_t i = 0; i < static_cast<std::int32_t>(list->second.size()); ++i) {
            const Entry& entry = *list->second[static_cast<std::size_t>(i)];
            if (i <= saved) continue;
            if (asker <= 0xFFFFFF && entry.reachable() == 0) continue;
            if (!search.root->evaluate(entry.record, lines)) continue;
            found.push_back(entry.record);
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

private:
    [[nodiscard]] std::uint32_t bucket_of(const wire::Hash& hash) const {
        std::uint32_t first = 0;
        for (std::size_t i = 4; i-- > 0;)
            first = first << 8U | hash.bytes[i];
        return first % buckets_;
    }
    [[nodiscard]] Entry* find(const wire::Hash& hash) const {
        const auto bucket = table_.find(bucket_of(hash));
        if (bucket == table_.end()) return nullptr;
        for (const auto& entry : bucket->second)
            if (entry->record.hash == hash) return entry.get();
        return nullptr;
    }
    void add_words(Entry& entry) {
        for (const wire::Tag& tag : entry.record.tags) {
            if (tag.type != 2) continue;
            for (const std::string& word : model_words(tag.text, " ,_-.(){}[]!?<>:\\/\t\n")) {
                if (entry.words.size() == 10) return;
                const std::uint32_t hash = model_keyword_hash(word);
                if (std::count(entry.words.begin(), entry.words.end(), hash) != 0) continue;
                entry.words.push_back(hash);
                lists_[hash].push_back(&entry);
            }
        }
    }
    std::vector<wire::Record> scan(ModelSearch& search, std::int32_t limit, std::uint32_t asker) {
        std::vector<wire::Record> found;
        const auto first = static_cast<std::uint32_t>(std::max(search.position, 0));
        for (auto bucket = table_.lower_bound(first); bucket != table_.end(); ++bucket) {
            const std::size_t start =
                bucket->first == first ? static_cast<std::size_t>(search.offset) : 0;
            for (std::size_t i = start; i < bucket->second.size(); ++i) {
                const Entry& entry = *bucket->second[i];
                if (asker < 0xFFFFFF && entry.reachable() == 0) continue;
                if (!search.root->evaluate(entry.record, lines)) continue;
                found.push_back(entry.record);
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
