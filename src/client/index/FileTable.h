#pragma once
// Everything the index keeps but the keywords, without a lock: the entries, and the four ways to
// them (by hash, by row, by bucket, by owner). FileIndex guards it.
//
//     hash ──► handle ──► entry { record, sources, row }        row ──► segment slot ──► record
//     bucket ──► rows in order of creation                    owner ──► handles
//
// Threads     None inside; const operations may run side by side.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "client/index/EntrySlab.h"
#include "client/index/HashToEntry.h"
#include "client/index/OwnerIndex.h"
#include "client/index/Prepared.h"
#include "client/index/RowListTable.h"
#include "client/index/RowStore.h"
#include "client/index/SparseBits.h"
#include "meta/ClientId.h"
#include "meta/FileHash.h"

namespace vorrim {

class FileTable {
public:
    static constexpr std::uint32_t kNone = EntrySlab::kNone;

    // See RowStore.
    FileTable(std::uint32_t row_limit, std::uint32_t segment_rows);
    FileTable(const FileTable&) = delete;
    FileTable& operator=(const FileTable&) = delete;

    // Sets the number of buckets (at least 1) of an empty table.
    void set_buckets(std::uint32_t count);
    [[nodiscard]] std::uint32_t buckets() const noexcept { return bucket_count_; }
    [[nodiscard]] std::uint32_t bucket_of(const FileHash& hash) const noexcept {
        return hash.first_u32() % bucket_count_;
    }

    // The handle of the hash's entry, or kNone.
    [[nodiscard]] std::uint32_t find(std::uint32_t digest, const FileHash& hash) const noexcept {
        return by_hash_.find(digest, hash, entries_);
    }
    // The same, but for one in four billion, without a look at the entry.
    [[nodiscard]] std::uint32_t find_likely(std::uint32_t digest) const noexcept {
        return by_hash_.find_likely(digest);
    }
    // Fetch in advance what finding a hash touches first, and an entry.
    void prefetch(std::uint32_t digest) const noexcept { by_hash_.prefetch(digest); }
    void prefetch_entry(std::uint32_t handle) const noexcept { entries_[handle].prefetch(); }
    // Fetch an entry's sources, or its record too, when the entry is at hand.
    void prefetch_sources(std::uint32_t handle) const noexcept {
        entries_[handle].sources.prefetch(sources_);
    }
    void prefetch_contents(std::uint32_t handle) const noexcept {
        entries_[handle].record.place().prefetch();
        prefetch_sources(handle);
    }
    // Fetches the head of the list of a hash's bucket.
    void prefetch_bucket(const FileHash& hash) const noexcept {
        bucket_lists_.prefetch(bucket_of(hash));
    }

    // Makes the entry of a hash that has none, with its first source. Takes the record, whose
    // availability is 1. Raises std::bad_alloc, also when the rows are exhausted, and there is no
    // entry then.
    std::uint32_t add_entry(Prepared& prepared, ClientId owner, std::uint16_t port);
    // Appends a source to an entry. Raises std::bad_alloc, and has changed nothing then.
    void add_source(std::uint32_t handle, ClientId owner, std::uint16_t port);
    // Takes the first `count` sources with this identifier from an entry, which has as many.
    // Returns whether sources are left; if not, the caller removes the entry.
    bool remove_sources(std::uint32_t handle, ClientId owner, std::uint32_t count) noexcept;
    // The digest is that of its hash.
    void remove_entry(std::uint32_t handle, std::uint32_t digest) noexcept;

    [[nodiscard]] const FileEntry& entry(std::uint32_t handle) const noexcept {
        return entries_[handle];
    }
    [[nodiscard]] const SourceStore& sources() const noexcept { return sources_; }
    [[nodiscard]] const RowStore& rows() const noexcept { return rows_; }
    // The entries of a bucket, or null when it is empty.
    [[nodiscard]] const RowList* bucket(std::uint32_t number) const noexcept {
        return bucket_lists_.find(number);
    }
    [[nodiscard]] const RowList* bucket(const FileHash& hash) const noexcept {
        return bucket(bucket_of(hash));
    }
    // The first bucket from this one on that is not empty, or SparseBits::kNone.
    [[nodiscard]] std::uint32_t next_bucket(std::uint32_t from) const noexcept {
        return occupied_.next(from);
    }

    // The owners of the sources; see FileIndex::publish and remove_client.
    OwnerIndex& owners() noexcept { return owners_; }
    [[nodiscard]] const OwnerIndex& owners() const noexcept { return owners_; }

    // All that names rows, with the new numbers that NewNumbers of this table's rows told.
    struct Renumbered {
        RowStore rows;
        RowListTable bucket_lists;
    };
    // Making it raises std::bad_alloc, taking it over nothing.
    [[nodiscard]] Renumbered renumbered(const RowStore::NewNumbers& new_number) const;
    void take_over(Renumbered renumbered, const RowStore::NewNumbers& new_number) noexcept;

    [[nodiscard]] std::uint32_t size() const noexcept { return entries_.size(); }

private:
    EntrySlab entries_;
    SourceStore sources_;
    HashToEntry by_hash_;
    RowStore rows_;
    RowListTable bucket_lists_;
    SparseBits occupied_;
    std::uint32_t bucket_count_ = 1;
    OwnerIndex owners_;
};

}  // namespace vorrim
