#include "client/index/FileTable.h"

#include <utility>

#include "base/Rollback.h"

namespace vorrim {

FileTable::FileTable(std::uint32_t row_limit, std::uint32_t segment_rows)
    : rows_(row_limit, segment_rows) {
    set_buckets(bucket_count_);
}

void FileTable::set_buckets(std::uint32_t count) {
    occupied_ = SparseBits(count);
    bucket_count_ = count;
}

std::uint32_t FileTable::add_entry(Prepared& prepared, ClientId owner, std::uint16_t port) {
    const bool reachable = owner.exceeds_low_range();
    const FileHash hash = prepared.record.view().hash();
    const std::uint32_t bucket = bucket_of(hash);
    const std::uint32_t handle = entries_.add();
    FileEntry& entry = entries_[handle];
    Rollback entry_made([&] { entries_.remove(handle); });
    entry.hash = hash;
    entry.row = rows_.append(prepared.record.place(), prepared.marks, reachable);
    Rollback row_given([&] { rows_.remove(entry.row); });
    by_hash_.insert(prepared.digest, handle);
    Rollback hash_known([&] { by_hash_.erase(prepared.digest, handle); });
    if (bucket_lists_.append(bucket, entry.row)) occupied_.set(bucket);
    hash_known.keep();
    row_given.keep();
    entry_made.keep();
    entry.record = std::move(prepared.record);
    entry.sources.append(sources_, owner, port);  // the first needs no memory
    entry.reachable = reachable ? 1 : 0;
    return handle;
}

void FileTable::add_source(std::uint32_t handle, ClientId owner, std::uint16_t port) {
    FileEntry& entry = entries_[handle];
    entry.sources.append(sources_, owner, port);
    if (owner.exceeds_low_range() && entry.reachable++ == 0) rows_.set_reachable(entry.row, true);
    entry.record.set_availability(entry.sources.size());
}

bool FileTable::remove_sources(std::uint32_t handle, ClientId owner, std::uint32_t count) noexcept {
    FileEntry& entry = entries_[handle];
    entry.sources.remove(sources_, owner, count);
    if (entry.sources.size() == 0) return false;
    if (owner.exceeds_low_range()) {
        entry.reachable -= count;
        if (entry.reachable == 0) rows_.set_reachable(entry.row, false);
    }
    entry.record.set_availability(entry.sources.size());
    return true;
}

void FileTable::remove_entry(std::uint32_t handle, std::uint32_t digest) noexcept {
    FileEntry& entry = entries_[handle];
    const std::uint32_t bucket = bucket_of(entry.hash);
    if (bucket_lists_.erase(bucket, entry.row)) occupied_.clear(bucket);
    by_hash_.erase(digest, handle);
    rows_.remove(entry.row);
    entry.sources.clear(sources_);
    entries_.remove(handle);
}

FileTable::Renumbered FileTable::renumbered(const RowStore::NewNumbers& new_number) const {
    return {.rows = rows_.renumbered(), .bucket_lists = bucket_lists_.renumbered(new_number)};
}

void FileTable::take_over(Renumbered renumbered, const RowStore::NewNumbers& new_number) noexcept {
    entries_.for_each([&](FileEntry& entry) { entry.row = new_number(entry.row); });
    rows_ = std::move(renumbered.rows);
    bucket_lists_ = std::move(renumbered.bucket_lists);
}

}  // namespace vorrim
