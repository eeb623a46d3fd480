#pragma once
// The file index with a keyword table on top: each entry is listed under the first ten distinct
// words of its record, and a search that contains a plain word visits only the files listed under
// that word, in the order in which they were first published. A search without one is a scan.
//
// The words of an entry are not kept: the record never changes its texts, so that they are taken
// from it again when the entry leaves.
#include "client/FileIndex.h"
#include "client/index/RowListTable.h"

namespace vorrim {

class KeywordFileIndex final : public FileIndex {
public:
    explicit KeywordFileIndex(IndexTuning tuning = {});

    // Number of words that list at least one file. Any thread.
    [[nodiscard]] std::uint32_t keyword_total() const;

private:
    std::uint32_t add_record(Prepared& prepared, ClientId owner, std::uint16_t port) override
        REQUIRES(lock_);
    void search_locked(SearchBatch& batch, MatchCollector& collector,
                       StepBudget& budget) const override REQUIRES_SHARED(lock_);
    void extract(Search& search) const override;
    [[nodiscard]] KeywordHashes words_of(RecordView record) const noexcept override;
    void entry_leaves(std::uint32_t row, const KeywordHashes& words) noexcept override
        REQUIRES(lock_);
    void prefetch_heads(const KeywordHashes& words) const noexcept override REQUIRES_SHARED(lock_);
    void add_lists(const KeywordHashes& words, std::uint32_t row,
                   Lists& lists) const noexcept override REQUIRES_SHARED(lock_);
    void renumber() override REQUIRES(lock_);

    RowListTable keywords_ GUARDED_BY(lock_);
};

}  // namespace vorrim
