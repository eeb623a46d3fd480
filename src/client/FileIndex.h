#pragma once
// The index of published files: for every distinct file hash one entry, with the record of its
// first publisher and the list of the clients that hold the file (its sources).
//
//     publish ──► filters, words, signature ──► entry ──► row ──► buckets (order of a scan)
//                 (outside the lock)              │        └────► keyword lists (KeywordFileIndex)
//                                                 └► sources, in wire form
//
// Ownership   The index owns the records it keeps. A reply receives copies of their bytes.
// Threads     Every operation marked "any thread" may run at any time beside all others. Searches
//             and source requests share the index lock; publications and departures take it alone,
//             a few dozen records at a time, and let searches that wait in between two of them.
//             What they know of the index stays true meanwhile, for no other writer comes in.
// Order       A scan visits bucket by bucket (first four bytes of the hash, little-endian, modulo
//             the bucket count), within a bucket by creation of the entries. Sources stand in order
//             of publication. A continued search remembers positions, not entries.
// Errors      Filters and searches with unknown operators print. Running out of memory raises: of a
//             publication then stands what had been entered, and leaves with its owner. Departures
//             need no memory. Replies are appended to streams that grow; in one that does not they
//             are cut.
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "base/Annotations.h"
#include "base/file/kx_memory_file.h"
#include "base/kx_critical_section.h"
#include "base/kx_shared_section.h"
#include "client/Filter.h"
#include "client/SearchBatch.h"
#include "client/index/FileTable.h"
#include "client/index/IndexTuning.h"
#include "client/index/OpenPlaces.h"
#include "client/index/Prepared.h"
#include "meta/ClientId.h"
#include "meta/FileHash.h"
#include "meta/FrozenRecord.h"
#include "meta/RecordView.h"
#include "search/Search.h"

namespace vorrim {

class FileIndex {
public:
    explicit FileIndex(IndexTuning tuning = {});
    virtual ~FileIndex();
    FileIndex(const FileIndex&) = delete;
    FileIndex& operator=(const FileIndex&) = delete;

    // Sets the number of buckets; below 1 counts as 1. Costs nothing per bucket. Call once, before
    // anything is published and before other threads know the index. Virtual for an index with a
    // table of its own to size.
    virtual void init(std::int32_t bucket_count);

    // A record that matches any filter is refused at publication. Filters are asked in their order;
    // what is published already stays. Any thread.
    void replace_filters(std::vector<Filter> filters);

    // Publishes a client's files: each record is stamped with the owner and enters the index, or
    // adds a source to the entry that its hash has already. The records are used up. Returns how
    // many no filter refused. Any thread.
    std::uint32_t publish(std::span<FrozenRecord> records, ClientId owner, std::uint16_t port);
    std::uint32_t publish(std::vector<FrozenRecord> records, ClientId owner, std::uint16_t port) {
        return publish(std::span(records), owner, port);
    }

    // Removes all sources with this identifier that were published before the call; entries that
    // lose their last source go with them. Costs that client's files, not the index. Any thread.
    void remove_client(ClientId client) noexcept;

    // Whether there is anything to remove. Any thread.
    [[nodiscard]] bool has_files_of(ClientId client) const;

    // The same in steps of bounded length, for whoever has others to serve meanwhile: continue
    // until it says false. A departure belongs to one thread and must be continued to its end.
    struct Departure {
        ClientId client{};
        OwnerIndex::Handles owned{};  // what has yet to leave
    };
    [[nodiscard]] Departure begin_departure(ClientId client) noexcept;
    [[nodiscard]] bool continue_departure(Departure& departure) noexcept;

    // Appends hash, count (one byte, at most 230) and that many sources (u32 identifier, u16 port)
    // in order of publication. Without an entry: false, and nothing is appended. Any thread.
    [[nodiscard]] bool write_sources(const FileHash& hash, kx_memory_file& out) const;

    // The sources of up to kRun files at once, for write_found: `deliver` is called
    // in the order of the hashes for those that have an entry, while the index lock is held for
    // reading, and must not call the index. Any thread.
    static constexpr std::size_t kRun = 16;
    struct Found {
        const SourceList& sources;
        const SourceStore& store;
    };
    void find_sources(std::span<const FileHash> hashes,
                      const std::function<void(const FileHash&, const Found&)>& deliver) const;
    static void write_found(const FileHash& hash, const Found& found, kx_memory_file& out);

    // A batch of a file search in steps of bounded length, for whoever has others to serve
    // meanwhile: continue until it says true. A step appends the records that it has found, or
    // hands each to `deliver` while the index lock is held for reading: `deliver` must not call the
    // index. Each batch leaves in the Search where the next one starts (resume position -1:
    // nowhere).
    [[nodiscard]] SearchBatch begin_batch(Search& search, std::int32_t limit, ClientId asker) const;
    [[nodiscard]] bool continue_batch(SearchBatch& batch, kx_memory_file& out) const;
    [[nodiscard]] bool continue_batch(SearchBatch& batch,
                                      const std::function<void(RecordView)>& deliver) const;

    // One batch of a file search: appends the records that match, in network form and in the order
    // of the index, and returns their number. The first batch extracts the keyword. The lock is
    // held for a step at a time. Any thread, but a Search belongs to one.
    std::uint32_t search(Search& search, kx_memory_file& out, std::int32_t limit,
                         ClientId asker) const;

    // Number of (file, source) pairs, reported as files. Any thread.
    [[nodiscard]] std::int32_t source_total() const noexcept;
    // Number of entries. Any thread.
    [[nodiscard]] std::uint32_t file_total() const;

protected:
    // Adds a prepared record as a source of its hash's entry, which is made when there is none.
    // Returns the handle of the entry. Raises std::bad_alloc, and has added nothing then.
    virtual std::uint32_t add_record(Prepared& prepared, ClientId owner, std::uint16_t port)
        REQUIRES(lock_);
    // One step of a batch. What the collector has when it is full, or the batch is through, is all.
    virtual void search_locked(SearchBatch& batch, MatchCollector& collector,
                               StepBudget& budget) const REQUIRES_SHARED(lock_);

    // An entry from which a client's sources are removed.
    struct Leaving {
        std::uint32_t handle = 0;
        std::uint32_t sources = 0;  // how many of the client's leave with this slice
        std::uint32_t digest = 0;   // of the file hash
        bool last = false;          // no other client has the file: the words are made
        KeywordHashes words{};
    };

    static constexpr std::size_t kMostLeaving = 64;  // at once

    // What the keyword variant adds: taking the keyword out of a Search, the words of a record, and
    // an entry's way out of the lists of its words.
    virtual void extract(Search& search) const;
    [[nodiscard]] virtual KeywordHashes words_of(RecordView record) const noexcept;
    virtual void entry_leaves(std::uint32_t row, const KeywordHashes& words) noexcept
        REQUIRES(lock_);
    // The lists that the records of a slice enter or leave, with their rows. What is too much of
    // them is not worth fetching in advance.
    struct RowOfList {
        const RowList* list;
        std::uint32_t row;
    };
    class Lists {
    public:
        void add(RowOfList one) noexcept {
            if (count_ < all_.size()) all_[count_++] = one;
        }
        // Takes step after step for all of them, those left out that need no further one.
        template <class Prefetch>
        void fetch(Prefetch&& prefetch) noexcept;

    private:
        std::size_t count_ = 0;
        // Those of a record's words, and its bucket.
        static constexpr std::size_t kOfARecord = kWordsOfARecord + 1;
        std::array<RowOfList, kMostLeaving * kOfARecord> all_;
    };
    // Fetches the heads of the words' lists in advance; and adds the lists that there are.
    virtual void prefetch_heads(const KeywordHashes& words) const noexcept REQUIRES_SHARED(lock_);
    virtual void add_lists(const KeywordHashes& words, std::uint32_t row,
                           Lists& lists) const noexcept REQUIRES_SHARED(lock_);
    // Gives the live rows new numbers when the old ones have run out. Raises std::bad_alloc, and
    // they keep the old ones then.
    virtual void renumber() REQUIRES(lock_);

    const IndexTuning tuning_;
    const KeyedHash hash_key_;
    mutable kx_shared_section lock_{"the index"};
    FileTable table_ GUARDED_BY(lock_);
    mutable OpenPlaces places_;

private:
    // What is in force at one moment; a publication keeps to it.
    using Filters = std::vector<std::shared_ptr<const Filter>>;
    [[nodiscard]] std::shared_ptr<const Filters> filters() const;
    void prepare(Prepared& prepared) const;
    void enter(std::span<Prepared> slice, ClientId owner, std::uint16_t port);
    void find_known(std::span<Prepared> slice) const;
    void leave(std::span<Leaving> slice, ClientId client) noexcept;
    void foresee(std::span<Leaving> slice) const noexcept;
    void make_words(Leaving& leaving) const noexcept REQUIRES_SHARED(lock_);
    // Fetch in advance, while others may still read, what entering and leaving will touch.
    void warm(std::span<const Prepared> slice) const noexcept REQUIRES_SHARED(lock_);
    void warm(std::span<const Leaving> slice) const noexcept REQUIRES_SHARED(lock_);
    template <class Deliver>
    bool step(SearchBatch& batch, Deliver&& deliver) const;

    mutable kx_critical_section filter_lock_;  // a leaf
    std::shared_ptr<const Filters> filters_ GUARDED_BY(filter_lock_) =
        std::make_shared<const Filters>();
    std::atomic<std::int32_t> source_total_{0};
};

}  // namespace vorrim
