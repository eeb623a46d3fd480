#include "client/FileIndex.h"

#include <algorithm>
#include <array>

#include "base/Finally.h"
#include "base/file/primitives.h"
#include "base/memory/PageHeap.h"
#include "client/index/MatchCollector.h"
#include "client/index/StepBudget.h"
#include "meta/Opcodes.h"
#include "search/UnknownOperations.h"

namespace vorrim {

FileIndex::FileIndex(IndexTuning tuning)
    : tuning_(tuning), table_(tuning.row_limit, tuning.segment_rows) {}

FileIndex::~FileIndex() = default;

void FileIndex::init(std::int32_t bucket_count) {
    const kx_write_guard guard(lock_);
    table_.set_buckets(static_cast<std::uint32_t>(std::max(bucket_count, 1)));
}

void FileIndex::replace_filters(std::vector<Filter> filters) {
    auto next = std::make_shared<Filters>();
    for (Filter& filter : filters)
        next->push_back(std::make_shared<const Filter>(std::move(filter)));
    std::shared_ptr<const Filters> last = std::move(next);  // of which the last user lets go
    const kx_guard hold(filter_lock_);
    filters_.swap(last);
}

std::shared_ptr<const FileIndex::Filters> FileIndex::filters() const {
    const kx_guard hold(filter_lock_);
    return filters_;
}

std::int32_t FileIndex::source_total() const noexcept {
    return source_total_.load(std::memory_order_relaxed);
}

std::uint32_t FileIndex::file_total() const {
    const kx_read_guard guard(lock_);
    return table_.size();
}

// ---- publication ----

std::uint32_t FileIndex::publish(std::span<FrozenRecord> records, ClientId owner,
                                 std::uint16_t port) {
    std::vector<Prepared> slice;
    slice.reserve(std::min<std::size_t>(records.size(), tuning_.slice));
    std::uint32_t accepted = 0;
    const std::shared_ptr<const Filters> in_force = filters();
    const auto refused = [&in_force](RecordView record) {
        return std::any_of(in_force->begin(), in_force->end(),
                           [&](const auto& filter) { return filter->matches(record); });
    };
    for (FrozenRecord& record : records) {
        if (record.empty()) continue;
        record.set_owner(owner, port);
        if (refused(record.view())) continue;
        slice.emplace_back().record = std::move(record);
        ++accepted;
        if (slice.size() < tuning_.slice) continue;
        enter(slice, owner, port);
        slice.clear();
    }
    if (!slice.empty()) enter(slice, owner, port);
    return accepted;
}

void FileIndex::enter(std::span<Prepared> slice, ClientId owner, std::uint16_t port) {
    PageHeap::prepare();
    for (Prepared& prepared : slice)
        prepared.digest = digest_of(hash_key_, prepared.record.view().hash());
    find_known(slice);
    for (Prepared& prepared : slice)
        if (!prepared.known()) prepare(prepared);

    {
        const kx_read_guard guard(lock_, kx_shared_section::Patiently{});
        warm(slice);
    }
    std::vector<std::uint32_t> handles;
    handles.reserve(slice.size());
    const kx_write_guard guard(lock_);
    OwnerIndex& owners = table_.owners();
    owners.make_room(owner, slice.size());
    // Whatever has entered by the time that memory runs out has its owner.
    const Finally note([&] {
        owners.add(owner, handles);
        source_total_.fetch_add(static_cast<std::int32_t>(handles.size()),
                                std::memory_order_relaxed);
    });
    for (Prepared& prepared : slice) {
        if (!handles.empty()) lock_.give_way();
        handles.push_back(add_record(prepared, owner, port));
    }
}

// Most publications are of files that others have too: for those nothing is prepared.
void FileIndex::find_known(std::span<Prepared> slice) const {
    const kx_read_guard guard(lock_, kx_shared_section::Patiently{});
    for (const Prepared& prepared : slice)
        table_.prefetch(prepared.digest);
    for (Prepared& prepared : slice) {
        prepared.likely = table_.find_likely(prepared.digest);
        if (prepared.known()) table_.prefetch_entry(prepared.likely);
    }
    for (const Prepared& prepared : slice)
        if (prepared.known()) table_.prefetch_contents(prepared.likely);
}

void FileIndex::prepare(Prepared& prepared) const {
    prepared.record.set_availability(1);
    prepared.marks = TextMarks(prepared.record.view());
    prepared.words = words_of(prepared.record.view());
}

std::uint32_t FileIndex::add_record(Prepared& prepared, ClientId owner, std::uint16_t port) {
    const std::uint32_t handle = table_.find(prepared.digest, prepared.record.view().hash());
    if (handle != FileTable::kNone) {
        table_.add_source(handle, owner, port);
        return handle;
    }
    if (prepared.known()) prepare(prepared);  // its last source left since
    if (table_.rows().exhausted()) renumber();
    return table_.add_entry(prepared, owner, port);
}

void FileIndex::renumber() {
    const RowStore::NewNumbers new_number(table_.rows());
    FileTable::Renumbered renumbered = table_.renumbered(new_number);
    places_.renumber([&](std::uint32_t row) { return new_number.of_any(row); });
    table_.take_over(std::move(renumbered), new_number);
}

// ---- departure ----

bool FileIndex::has_files_of(ClientId client) const {
    const kx_read_guard guard(lock_);
    return table_.owners().has(client);
}

void FileIndex::remove_client(ClientId client) noexcept {
    Departure departure = begin_departure(client);
    while (continue_departure(departure)) {
    }
}

FileIndex::Departure FileIndex::begin_departure(ClientId client) noexcept {
    const kx_write_guard guard(lock_);
    return {.client = client, .owned = table_.owners().take(client)};
}

bool FileIndex::continue_departure(Departure& departure) noexcept {
    std::array<std::uint32_t, kMostLeaving> handles;
    const std::size_t sources = departure.owned.read(
        std::span(handles).first(std::min<std::size_t>(tuning_.slice, kMostLeaving)));
    if (sources == 0) return false;
    std::array<Leaving, kMostLeaving> leaving;
    std::size_t entries = 0;
    for (const std::uint32_t handle : std::span(handles).first(sources)) {
        if (entries == 0 || leaving[entries - 1].handle != handle)
            leaving[entries++].handle = handle;
        ++leaving[entries - 1].sources;
    }
    const std::span<Leaving> slice = std::span(leaving).first(entries);
    foresee(slice);
    leave(slice, departure.client);
    source_total_.fetch_sub(static_cast<std::int32_t>(sources), std::memory_order_relaxed);
    return !departure.owned.empty();
}

void FileIndex::leave(std::span<Leaving> slice, ClientId client) noexcept {
    const kx_write_guard guard(lock_);
    for (Leaving& leaving : slice) {
        if (&leaving != slice.data()) lock_.give_way();
        if (table_.remove_sources(leaving.handle, client, leaving.sources)) continue;
        if (!leaving.last) make_words(leaving);  // the other clients have left meanwhile
        entry_leaves(table_.entry(leaving.handle).row, leaving.words);
        table_.remove_entry(leaving.handle, leaving.digest);
    }
}

// All that can be done while others may read. The entries stay, for they have sources that are yet
// to be removed.
void FileIndex::foresee(std::span<Leaving> slice) const noexcept {
    const kx_read_guard guard(lock_, kx_shared_section::Patiently{});
    for (const Leaving& leaving : slice)
        table_.prefetch_entry(leaving.handle);
    for (const Leaving& leaving : slice)
        table_.prefetch_contents(leaving.handle);
    for (Leaving& leaving : slice) {
        leaving.last = table_.entry(leaving.handle).sources.size() == leaving.sources;
        if (leaving.last) make_words(leaving);
    }
    warm(slice);
}

void FileIndex::make_words(Leaving& leaving) const noexcept {
    const FileEntry& entry = table_.entry(leaving.handle);
    leaving.digest = digest_of(hash_key_, entry.hash);
    leaving.words = words_of(entry.record.view());
}

template <class Prefetch>
void FileIndex::Lists::fetch(Prefetch&& prefetch) noexcept {
    const auto begin = all_.begin();
    for (int step = 0; count_ != 0; ++step) {
        const auto end =
            std::remove_if(begin, begin + static_cast<std::ptrdiff_t>(count_),
                           [&](const RowOfList& at) { return !prefetch(*at.list, at.row, step); });
        count_ = static_cast<std::size_t>(end - begin);
    }
}

void FileIndex::warm(std::span<const Prepared> slice) const noexcept {
    Lists lists;
    for (const Prepared& prepared : slice) {
        if (prepared.known()) continue;
        table_.prefetch_bucket(prepared.record.view().hash());
        prefetch_heads(prepared.words);
    }
    for (const Prepared& prepared : slice) {
        if (prepared.known()) continue;
        if (const RowList* const bucket = table_.bucket(prepared.record.view().hash()))
            lists.add({bucket, 0});
        add_lists(prepared.words, 0, lists);
    }
    lists.fetch(
        [](const RowList& list, std::uint32_t, int step) { return list.prefetch_append(step); });
}

void FileIndex::warm(std::span<const Leaving> slice) const noexcept {
    Lists lists;
    for (const Leaving& leaving : slice) {
        if (!leaving.last) continue;
        table_.prefetch_bucket(table_.entry(leaving.handle).hash);
        prefetch_heads(leaving.words);
    }
    for (const Leaving& leaving : slice) {
        if (!leaving.last) continue;
        const FileEntry& entry = table_.entry(leaving.handle);
        lists.add({table_.bucket(entry.hash), entry.row});
        add_lists(leaving.words, entry.row, lists);
    }
    lists.fetch([](const RowList& list, std::uint32_t row, int step) {
        return list.prefetch_erase(row, step);
    });
    for (const Leaving& leaving : slice)
        if (leaving.last) table_.prefetch(leaving.digest);
}

void FileIndex::prefetch_heads(const KeywordHashes&) const noexcept {}

void FileIndex::add_lists(const KeywordHashes&, std::uint32_t, Lists&) const noexcept {}

KeywordHashes FileIndex::words_of(RecordView) const noexcept {
    return {};
}

void FileIndex::entry_leaves(std::uint32_t, const KeywordHashes&) noexcept {}

// ---- questions ----

void FileIndex::write_found(const FileHash& hash, const Found& found, kx_memory_file& out) {
    const std::size_t count = std::min<std::size_t>(found.sources.size(), kMaxEntriesInList);
    write_bytes(out, hash.bytes);
    write_8(out, static_cast<std::uint8_t>(count));
    write_bytes(out, found.sources.first());
    write_bytes(out, found.sources.further(found.store).first((count - 1) * kSourceSize));
}

bool FileIndex::write_sources(const FileHash& hash, kx_memory_file& out) const {
    const std::uint32_t digest = digest_of(hash_key_, hash);
    const kx_read_guard guard(lock_);
    const std::uint32_t handle = table_.find(digest, hash);
    if (handle == FileTable::kNone) return false;
    write_found(hash, {table_.entry(handle).sources, table_.sources()}, out);
    return true;
}

// What the steps touch is fetched for all hashes first, so that the memory's answers overlap.
void FileIndex::find_sources(
    std::span<const FileHash> hashes,
    const std::function<void(const FileHash&, const Found&)>& deliver) const {
    std::array<std::uint32_t, kRun> digests;
    hashes = hashes.first(std::min(hashes.size(), kRun));
    const kx_read_guard guard(lock_);
    for (std::size_t i = 0; i < hashes.size(); ++i) {
        digests[i] = digest_of(hash_key_, hashes[i]);
        table_.prefetch(digests[i]);
    }
    std::array<std::uint32_t, kRun> likely;
    for (std::size_t i = 0; i < hashes.size(); ++i) {
        likely[i] = table_.find_likely(digests[i]);
        if (likely[i] != FileTable::kNone) table_.prefetch_entry(likely[i]);
    }
    for (std::size_t i = 0; i < hashes.size(); ++i) {
        if (likely[i] != FileTable::kNone) table_.prefetch_sources(likely[i]);
    }
    for (std::size_t i = 0; i < hashes.size(); ++i) {
        const std::uint32_t handle = table_.find(digests[i], hashes[i]);
        if (handle != FileTable::kNone) {
            deliver(hashes[i], {table_.entry(handle).sources, table_.sources()});
        }
    }
}

SearchBatch FileIndex::begin_batch(Search& search, std::int32_t limit, ClientId asker) const {
    SearchBatch batch(search, asker);
    if (search.root() == nullptr) {
        search.resume_position = Search::kNothingToContinue;
        search.resume_offset = 0;
        batch.through_ = true;
        return batch;
    }
    extract(search);
    batch.plan_.emplace(*search.root());
    batch.evaluator_.emplace(search);
    // A keyword's list is left only when the limit has been exceeded.
    const std::int64_t wanted = std::int64_t{limit} + (search.keyword().empty() ? 0 : 1);
    batch.capacity_ = static_cast<std::size_t>(std::max<std::int64_t>(wanted, 1));
    return batch;
}

template <class Deliver>
bool FileIndex::step(SearchBatch& batch, Deliver&& deliver) const {
    struct Taker final : MatchCollector::Taker {
        explicit Taker(Deliver& to) : deliver(to) {}
        void take(std::span<const Candidate> matches) override {
            for (const Candidate& match : matches)
                deliver(match.record.view());
        }
        Deliver& deliver;
    };
    if (batch.through_) return true;
    Taker taker(deliver);
    StepBudget budget(tuning_.step);
    const HeldReports reports(batch.reports_);
    const kx_read_guard guard(lock_);
    MatchCollector collector(*batch.evaluator_, batch.capacity_ - batch.found_, taker, budget);
    search_locked(batch, collector, budget);
    batch.found_ += static_cast<std::uint32_t>(collector.count());
    return batch.through_;
}

bool FileIndex::continue_batch(SearchBatch& batch, kx_memory_file& out) const {
    return step(batch, [&out](RecordView record) { write_bytes(out, record.bytes()); });
}

bool FileIndex::continue_batch(SearchBatch& batch,
                               const std::function<void(RecordView)>& deliver) const {
    return step(batch, deliver);
}

std::uint32_t FileIndex::search(Search& search, kx_memory_file& out, std::int32_t limit,
                                ClientId asker) const {
    SearchBatch batch = begin_batch(search, limit, asker);
    while (!continue_batch(batch, out)) {
    }
    return batch.found();
}

void FileIndex::extract(Search&) const {}

void FileIndex::search_locked(SearchBatch& batch, MatchCollector& collector,
                              StepBudget& budget) const {
    Search& search = *batch.search_;
    if (!batch.place_) {
        batch.plan_->order_by(table_.rows().weights());
        batch.bucket_ = static_cast<std::uint32_t>(std::max(search.resume_position, 0));
        const RowList* const list = table_.bucket(batch.bucket_);
        const auto offset = static_cast<std::uint32_t>(std::max(search.resume_offset, 0));
        batch.pause_at(places_, list != nullptr ? list->row_at(offset) : 0);
    }
    OpenPlaces::Kept& kept = batch.place_->kept();
    const ScanTask task{
        table_,    *batch.plan_, search, *batch.evaluator_, batch.asker_.below_low_limit(),
        collector, budget};
    ScanWalk walk(task, tuning_.rows_to_judge, batch.scan_, kept);
    if (const auto next = walk.run({batch.bucket_, kept.row})) {
        batch.bucket_ = next->bucket;
        kept.row = next->row;
        return;
    }
    batch.through_ = true;
    search.resume_position = Search::kNothingToContinue;
    search.resume_offset = 0;
    if (!collector.full()) return;
    const Candidate& last = collector.last();
    const std::uint32_t bucket = table_.bucket_of(last.record.view().hash());
    search.resume_position = static_cast<std::int32_t>(bucket);
    search.resume_offset = static_cast<std::int32_t>(table_.bucket(bucket)->rank(last.row) + 1);
}

}  // namespace vorrim
