#include "meta/RecordList.h"

#include <algorithm>
#include <utility>

#include "base/file/kx_disk_file.h"
#include "base/kx_err.h"
#include "meta/Diagnostics.h"

namespace vorrim {

namespace {

constexpr std::uint32_t kCountSize = 4;

}  // namespace

template <typename Item>
bool RecordList<Item>::toNetwork(kx_file& to) const {
    const kx_guard hold(lock_);
    return saveListLocked(records_, to, Form::network);
}

template <typename Item>
bool RecordList<Item>::toDisk(kx_file& to) const {
    write_8(to, kListMarker);
    const kx_guard hold(lock_);
    return saveListLocked(records_, to, Form::disk);
}

template <typename Item>
bool RecordList<Item>::fromNetwork(kx_file& from) {
    try {
        const auto announced = static_cast<std::int32_t>(read_32(from));
        for (std::int32_t i = 0; i < announced; ++i) {
            Record record = std::make_shared<Item>();
            if (!record->fromNetwork(from)) {
                diagnostics::unreadable_list_item(announced, i);
                report_network_failure();
                return false;
            }
            append(std::move(record));
        }
        return true;
    } catch (const kx_err&) {
        return false;  // ended within the count: too little to be worth a line
    }
}

template <typename Item>
bool RecordList<Item>::fromDisk(kx_file& from) {
    if (read_8(from) != kListMarker) return false;
    const auto announced = static_cast<std::int32_t>(read_32(from));
    for (std::int32_t i = 0; i < announced; ++i) {
        Record record = std::make_shared<Item>();
        if (!record->fromDisk(from)) {
            diagnostics::unreadable_list_item(announced, i);
            report_disk_failure();
            return false;
        }
        append(std::move(record));
    }
    return true;
}

template <typename Item>
std::uint32_t RecordList<Item>::size() const {
    const kx_guard hold(lock_);
    std::uint32_t total = kCountSize;
    for (const Record& record : records_)
        total += record->size();
    return total;
}

template <typename Item>
bool RecordList<Item>::loadFromFile(const std::string& name) {
    const std::unique_ptr<kx_file> file = kx_open_file(name, KX_FILE_READ);
    if (!file) return false;
    return fromDisk(*file);
}

template <typename Item>
bool RecordList<Item>::saveToFile(const std::string& name) const {
    // The bytes are gathered in memory first, so that the lock is not held while the disk works.
    return replace_file(name, [this](kx_file& file) { return toDisk(file); });
}

template <typename Item>
void RecordList<Item>::append(Record record) {
    const kx_guard hold(lock_);
    records_.push_back(std::move(record));
}

template <typename Item>
bool RecordList<Item>::addUnique(const Record& record) {
    const kx_guard hold(lock_);
    if (first([&](const Item& other) { return same(*record, other); })) return true;
    records_.push_back(record);
    return false;
}

template <typename Item>
bool RecordList<Item>::remove(const Item& record) {
    const kx_guard hold(lock_);
    const auto found = std::find_if(records_.begin(), records_.end(),
                                    [&](const Record& other) { return other.get() == &record; });
    if (found == records_.end()) return false;
    records_.erase(found);
    return true;
}

template <typename Item>
void RecordList<Item>::clear() {
    const kx_guard hold(lock_);
    records_.clear();
}

template <typename Item>
std::vector<std::shared_ptr<Item>> RecordList<Item>::removeAll() {
    const kx_guard hold(lock_);
    return std::exchange(records_, {});
}

template <typename Item>
void RecordList<Item>::copyFrom(const RecordList& other) {
    if (&other == this) return;
    const kx_guard hold(lock_);
    const kx_guard hold_other(other.lock_);
    records_.clear();
    for (const Record& record : other.records_) {
        records_.push_back(std::make_shared<Item>());
        records_.back()->copyFrom(*record);
    }
}

template <typename Item>
std::size_t RecordList<Item>::count() const {
    const kx_guard hold(lock_);
    return records_.size();
}

template <typename Item>
void RecordList<Item>::forEach(const std::function<void(const Item&)>& see) const {
    const kx_guard hold(lock_);
    for (const Record& record : records_)
        see(*record);
}

template <typename Item>
std::vector<std::shared_ptr<Item>> RecordList<Item>::visit(
    const std::function<Visit(Item&)>& judge) {
    const kx_guard hold(lock_);
    std::vector<Record> kept;
    std::vector<Record> removed;
    for (const Record& record : records_) {
        (judge(*record) == Visit::keep ? kept : removed).push_back(record);
    }
    records_ = std::move(kept);
    return removed;
}

template class RecordList<Meta>;
template class RecordList<ServerMeta>;

}  // namespace vorrim
