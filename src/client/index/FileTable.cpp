#include "client/index/FileTable.h"

#include <utility>

namespace vorrim {

FileTable::FileTable(std::uint32_t row_limit, std::uint32_t segment_rows)
    : rows_(row_limit, segment_rows) {
    set_buckets(bucket_count_);
}

FileTable::~FileTable() {
    for (const auto& segment : rows_.segments())
        segment->for_each_live([&](std::uint32_t slot) {
            entries_[segment->handle_of(slot)].sources.clear(sources_);
        });
}

void FileTable::set_buckets(std::uint32_t count) {
    occupied_ = SparseBits(count);
    bucket_count_ = count;
}

std::uint32_t FileTable::add_entry(Prepared& prepared, ClientId owner, std::uint16_t port) {
    const bool reachable = owner.exceeds_low_range();
    const FileHash hash = prepared.record.view().hash();
    const std::uint32_t handle = entries_.add();
    FileEntry& entry = entries_[handle];
    entry.record = std::move(prepared.record);
    entry.sources.append(sources_, owner, port);
    entry.reachable = reachable ? 1 : 0;
    entry.row = rows_.append(handle, prepared.signature, reachable, entry.record.view());
    by_hash_.insert(prepared.digest, handle);
    const std::uint32_t bucket = bucket_of(hash);
    if (bucket_lists_.append(bucket, entry.row)) occupied_.set(bucket);
    return handle;
}

void FileTable::add_source(std::uint32_t handle, ClientId owner, std::uint16_t port) {
    FileEntry& entry = entries_[handle];
    entry.sources.append(sources_, owner, port);
    if (owner.exceeds_low_range() && entry.reachable++ == 0) rows_.set_reachable(entry.row, true);
    entry.record.set_availability(entry.sources.size());
}

bool FileTable::remove_sources(std::uint32_t handle, ClientId owner, std::uint32_t count) {
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

void FileTable::remove_entry(std::uint32_t handle, std::uint32_t digest) {
    FileEntry& entry = entries_[handle];
    const FileHash hash = entry.record.view().hash();
    const std::uint32_t bucket = bucket_of(hash);
    if (bucket_lists_.erase(bucket, entry.row)) occupied_.clear(bucket);
    by_hash_.erase(digest, handle);
    rows_.remove(entry.row);
    entry.sources.clear(sources_);
    entries_.remove(handle);
}

void FileTable::renumber(const RowStore::NewNumbers& new_number) {
    bucket_lists_.renumber(new_number);
    rows_.renumber([&](std::uint32_t handle) { return entries_[handle].record.view(); },
                   [&](std::uint32_t handle, std::uint32_t row) { entries_[handle].row = row; });
}

std::size_t FileTable::heap_bytes() const noexcept {
    return entries_.heap_bytes() + sources_.heap_bytes() + by_hash_.heap_bytes() +
           rows_.heap_bytes() + bucket_lists_.heap_bytes() + owners_.heap_bytes();
}

}  // namespace vorrim
