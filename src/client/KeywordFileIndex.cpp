#include "client/KeywordFileIndex.h"

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

#include "client/index/CandidatePlan.h"
#include "client/index/KeywordWalk.h"

namespace vorrim {

KeywordFileIndex::KeywordFileIndex(IndexTuning tuning) : FileIndex(tuning) {}

std::uint32_t KeywordFileIndex::keyword_total() const {
    const kx_read_guard guard(lock_);
    return static_cast<std::uint32_t>(keywords_.size());
}

std::uint32_t KeywordFileIndex::add_record(Prepared& prepared, ClientId owner, std::uint16_t port) {
    const std::uint32_t handle = FileIndex::add_record(prepared, owner, port);
    const FileEntry& entry = table_.entry(handle);
    if (entry.sources.size() > 1) return handle;
    const std::uint32_t* word = prepared.words.begin();
    try {
        for (; word != prepared.words.end(); ++word)
            keywords_.append(*word, entry.row);
    } catch (const std::bad_alloc&) {
        while (word != prepared.words.begin())
            keywords_.erase(*--word, entry.row);
        table_.remove_entry(handle, prepared.digest);
        throw;
    }
    return handle;
}

KeywordHashes KeywordFileIndex::words_of(RecordView record) const noexcept {
    return keywords_of(record);
}

void KeywordFileIndex::entry_leaves(std::uint32_t row, const KeywordHashes& words) noexcept {
    for (const std::uint32_t word : words)
        keywords_.erase(word, row);
}

void KeywordFileIndex::prefetch_heads(const KeywordHashes& words) const noexcept {
    for (const std::uint32_t word : words)
        keywords_.prefetch(word);
}

void KeywordFileIndex::add_lists(const KeywordHashes& words, std::uint32_t row,
                                 Lists& lists) const noexcept {
    for (const std::uint32_t word : words)
        if (const RowList* const list = keywords_.find(word)) lists.add({list, row});
}

void KeywordFileIndex::renumber() {
    RowListTable renumbered = keywords_.renumbered(RowStore::NewNumbers(table_.rows()));
    FileIndex::renumber();
    keywords_ = std::move(renumbered);
}

void KeywordFileIndex::extract(Search& search) const {
    search.extract_keyword();
}

void KeywordFileIndex::search_locked(SearchBatch& batch, MatchCollector& collector,
                                     StepBudget& budget) const {
    Search& search = *batch.search_;
    if (search.keyword().empty()) return FileIndex::search_locked(batch, collector, budget);

    const RowList* const list = keywords_.find(keyword_hash(search.keyword()));
    if (list != nullptr) {
        // Entries up to and with the saved position have been visited.
        const std::int64_t position = std::int64_t{search.resume_position} + 1;
        const std::uint32_t from =
            batch.place_
                ? batch.place_->kept().row
                : list->row_at(static_cast<std::uint32_t>(std::max<std::int64_t>(position, 0)));
        if (!batch.place_) batch.plan_->order_by(table_.rows().weights());
        KeywordWalk walk(table_, *batch.plan_, !batch.asker_.exceeds_low_range(), collector,
                         budget);
        if (const auto next = walk.run(*list, from)) return batch.pause_at(places_, *next);
    }
    batch.through_ = true;
    search.resume_position = Search::kNothingToContinue;
    if (list == nullptr || !collector.full()) return;
    const std::uint32_t last = list->rank(collector.last().row);
    if (last <= std::numeric_limits<std::int32_t>::max())
        search.resume_position = static_cast<std::int32_t>(last);
}

}  // namespace vorrim
