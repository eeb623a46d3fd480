// The engines that are no more than a list and a loop.
#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <unordered_map>

#include "base/file/primitives.h"
#include "base/string/strings.h"
#include "bench/common/Engine.h"
#include "client/index/keyword_hash.h"
#include "search/Search.h"

namespace vorrim::bench {
namespace {

using Lists = std::unordered_map<std::uint32_t, std::vector<std::uint32_t>>;

Lists lists_of(const std::vector<RecordView>& records) {
    Lists lists;
    for (std::uint32_t number = 0; number < records.size(); ++number)
        for (const std::uint32_t word : keywords_of(records[number]))
            lists[word].push_back(number);
    return lists;
}

class Walk final : public Engine {
public:
    [[nodiscard]] const char* name() const override { return "walk"; }
    void load(const std::vector<RecordView>& records) override {
        records_ = records;
        lists_ = lists_of(records);
    }
    std::uint32_t search(const Query& query, kx_memory_file& out) override {
        Search search;
        kx_memory_file wire = kx_memory_file::reading(std::as_bytes(std::span(query.wire)));
        if (!search.read(wire)) throw std::runtime_error("a query cannot be read");
        std::uint32_t found = 0;
        const auto take = [&](RecordView record) {
            if (search.matches(record)) {
                write_bytes(out, record.bytes());
                ++found;
            }
            return found < kLimit;
        };
        if (search.extract_keyword().empty()) {
            for (const RecordView record : records_)
                if (!take(record)) break;
            return found;
        }
        const auto list = lists_.find(keyword_hash(search.keyword()));
        if (list == lists_.end()) return 0;
        for (const std::uint32_t number : list->second)
            if (!take(records_[number])) break;
        return found;
    }

private:
    std::vector<RecordView> records_;
    Lists lists_;
};

class Postings final : public Engine {
public:
    [[nodiscard]] const char* name() const override { return "postings"; }
    [[nodiscard]] bool answers(const QueryClass& of) const override { return !of.scan; }
    void load(const std::vector<RecordView>& records) override {
        records_ = records;
        lists_ = lists_of(records);
    }
    std::uint32_t search(const Query& query, kx_memory_file& out) override {
        std::vector<const std::vector<std::uint32_t>*> lists;
        for (const std::string& word : query.words) {
            const auto list = lists_.find(keyword_hash(word));
            if (list == lists_.end()) return 0;
            lists.push_back(&list->second);
        }
        std::sort(lists.begin(), lists.end(),
                  [](const auto* a, const auto* b) { return a->size() < b->size(); });
        std::vector<std::size_t> at(lists.size(), 0);
        std::uint32_t found = 0;
        for (const std::uint32_t number : *lists.front()) {
            bool in_all = true;
            for (std::size_t i = 1; in_all && i < lists.size(); ++i)
                in_all = gallop(*lists[i], at[i], number);
            if (!in_all) continue;
            write_bytes(out, records_[number].bytes());
            if (++found == kLimit) break;
        }
        return found;
    }

private:
    // Moves to the first number that is not lower; is it this one?
    static bool gallop(const std::vector<std::uint32_t>& list, std::size_t& at,
                       std::uint32_t number) {
        std::size_t step = 1;
        while (at + step < list.size() && list[at + step] < number)
            step *= 2;
        const auto begin = list.begin() + static_cast<std::ptrdiff_t>(at + step / 2);
        const auto end =
            list.begin() + static_cast<std::ptrdiff_t>(std::min(list.size(), at + step + 1));
        at = static_cast<std::size_t>(std::lower_bound(begin, end, number) - list.begin());
        return at < list.size() && list[at] == number;
    }

    std::vector<RecordView> records_;
    Lists lists_;
};

class Linear final : public Engine {
public:
    explicit Linear(LinearKind kind) : whole_(kind == LinearKind::whole) {}

    [[nodiscard]] const char* name() const override {
        return whole_ ? "linear_whole" : "linear_stopping";
    }
    [[nodiscard]] bool answers(const QueryClass& of) const override {
        return of.scan && of.about_text;
    }
    void load(const std::vector<RecordView>& records) override {
        records_ = records;
        for (const RecordView record : records) {
            texts_ += folded_texts(record);
            ends_.push_back(texts_.size());
        }
    }
    std::uint32_t search(const Query& query, kx_memory_file& out) override {
        std::uint32_t found = 0;
        std::size_t begin = 0;
        for (std::size_t number = 0; number < ends_.size(); ++number) {
            const std::string_view text(texts_.data() + begin, ends_[number] - begin);
            begin = ends_[number];
            if (!std::any_of(
                    query.alternatives.begin(), query.alternatives.end(), [&](const auto& parts) {
                        return std::all_of(parts.begin(), parts.end(), [&](const auto& part) {
                            return kx_strstr_lower(text, part) != kx_npos;
                        });
                    }))
                continue;
            if (found == kLimit) continue;
            write_bytes(out, records_[number].bytes());
            if (++found == kLimit && !whole_) break;
        }
        return found;
    }

private:
    const bool whole_;
    std::vector<RecordView> records_;
    std::string texts_;
    std::vector<std::size_t> ends_;
};

}  // namespace

std::string folded_texts(RecordView record) {
    std::string texts;
    for (const TagView& tag : record.tags())
        if (tag.type == TagType::text) (texts += tag.text()) += '\n';
    kx_strlwr(texts);
    return texts;
}

std::unique_ptr<Engine> make_walk() {
    return std::make_unique<Walk>();
}
std::unique_ptr<Engine> make_postings() {
    return std::make_unique<Postings>();
}
std::unique_ptr<Engine> make_linear(LinearKind kind) {
    return std::make_unique<Linear>(kind);
}

}  // namespace vorrim::bench
