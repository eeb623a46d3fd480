#pragma once
// The index as plainly as its rules can be said: lists of decoded records, walked from front to
// back. Slow, and shares nothing with the index.
#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <tuple>
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
        std::vector<std::pair<std::uint32_t, std::uint16_t>> sources{};

        [[nodiscard]] bool is_reachable() const {
            return std::ranges::any_of(sources, [](const auto& s) { return s.first > 0xFFFFFF; });
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
            Entry* entry = find(record.hash);
            const bool is_new = entry == nullptr;
            if (is_new) entry = &table_.emplace(bucket_of(record.hash), Entry{record})->second;
            entry->sources.emplace_back(id, port);
            entry->set_availability();
            if (is_new && keywords_) add_words(*entry);
        }
    }

    void remove_client(std::uint32_t id) {
        for (auto& [bucket, entry] : table_) {
            std::erase_if(entry.sources, [&](const auto& s) { return s.first == id; });
            entry.set_availability();
        }
        for (auto& [word, list] : lists_)
            std::erase_if(list, [](const Entry* entry) { return entry->sources.empty(); });
        std::erase_if(lists_, [](const auto& list) { return list.second.empty(); });
        std::erase_if(table_, [](const auto& row) { return row.second.sources.empty(); });
    }

    [[nodiscard]] wire::Bytes sources(const wire::Hash& hash) {
        const Entry* entry = find(hash);
        if (entry == nullptr) return {};
        const std::size_t count = std::min<std::size_t>(entry->sources.size(), 230);
        wire::Bytes bytes = hash.encode().u8(static_cast<std::uint32_t>(count));
        for (std::size_t i = 0; i < count; ++i)
            bytes.u32(entry->sources[i].first).u16(entry->sources[i].second);
        return bytes;
    }

    std::vector<wire::Record> search(ModelSearch& search, std::int32_t limit, std::uint32_t asker) {
        if (keywords_) search.extract();
        if (search.keyword.empty()) return scan(search, limit, asker);
        std::vector<wire::Record> found;
        const std::int32_t saved = std::exchange(search.position, -1);
        const auto list = lists_.find(model_keyword_hash(search.keyword));
        if (list == lists_.end()) return found;
        for (std::int32_t i = 0; i < static_cast<std::int32_t>(list->second.size()); ++i) {
            const Entry& entry = *list->second[static_cast<std::size_t>(i)];
            if (i <= saved) continue;
            if (asker <= 0xFFFFFF && !entry.is_reachable()) continue;
            if (!search.root->evaluate(entry.record, lines)) continue;
            found.push_back(entry.record);
            if (static_cast<std::int32_t>(found.size()) > limit) {
                search.position = i;
                break;
            }
        }
        return found;
    }

    [[nodiscard]] std::size_t source_total() const {
        std::size_t total = 0;
        for (const auto& [bucket, entry] : table_)
            total += entry.sources.size();
        return total;
    }
    [[nodiscard]] std::size_t keyword_total() const { return lists_.size(); }
    [[nodiscard]] std::size_t file_total() const { return table_.size(); }

private:
    [[nodiscard]] std::int32_t bucket_of(const wire::Hash& hash) const {
        std::uint32_t first = 0;
        for (std::size_t i = 4; i-- > 0;)
            first = first << 8U | hash.bytes[i];
        return static_cast<std::int32_t>(first % buckets_);
    }
    [[nodiscard]] Entry* find(const wire::Hash& hash) {
        const auto [first, end] = table_.equal_range(bucket_of(hash));
        const auto at = std::find_if(
            first, end, [&](const auto& row) { return row.second.record.hash == hash; });
        return at == end ? nullptr : &at->second;
    }
    void add_words(Entry& entry) {
        std::set<std::uint32_t> known;
        for (const wire::Tag& tag : entry.record.tags) {
            if (tag.type != 2) continue;
            for (const std::string& word : model_words(tag.text, " ,_-.(){}[]!?<>:\\/\t\n")) {
                if (known.size() == 10) return;
                const std::uint32_t hash = model_keyword_hash(word);
                if (known.insert(hash).second) lists_[hash].push_back(&entry);
            }
        }
    }
    std::vector<wire::Record> scan(ModelSearch& search, std::int32_t limit, std::uint32_t asker) {
        std::vector<wire::Record> found;
        std::pair<std::int32_t, std::int32_t> place(-1, 0);  // a bucket, and how far in it
        for (const auto& [bucket, entry] : table_) {
            place = {bucket, bucket == place.first ? place.second + 1 : 1};
            if (place <= std::pair(search.position, search.offset)) continue;
            if (asker < 0xFFFFFF && !entry.is_reachable()) continue;
            if (!search.root->evaluate(entry.record, lines)) continue;
            found.push_back(entry.record);
            if (static_cast<std::int32_t>(found.size()) < limit) continue;
            std::tie(search.position, search.offset) = place;
            return found;
        }
        search.position = -1;
        search.offset = 0;
        return found;
    }

    const bool keywords_;
    const std::uint32_t buckets_;
    std::multimap<std::int32_t, Entry> table_;            // by bucket, and in a bucket as they came
    std::map<std::uint32_t, std::vector<Entry*>> lists_;  // by word
};

}  // namespace vorrim::test
