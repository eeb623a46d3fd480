#pragma once
// A list of records, sent, received, saved and loaded as a whole: what FileList and ServerList have
// in common.
//
//     network   [ count u32 | records in network form ]
//     disk      [ 0E | count u32 | records in disk form ]
//
// Ownership   A list shares its records: one that a list lets go of lives on as long as somebody
//             else holds it, so that nobody is left with a record that is gone. clear() is for
//             records that should end with this list; removeAll() hands them over.
// Threads     Every operation takes the list's lock itself, and those that walk the list hold it
//             while they call back: the callback must not use the same list. A list that is being
//             decoded belongs to its thread. copyFrom takes this list's lock and then the other's:
//             two lists must not copy from each other at the same time.
// Errors      Decoding from disk and loading raise kx_err when the bytes end early.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/Annotations.h"
#include "base/kx_critical_section.h"
#include "meta/Meta.h"
#include "meta/Serializable.h"
#include "meta/ServerMeta.h"

namespace vorrim {

// First byte of the disk form.
inline constexpr std::uint8_t kListMarker = 0x0E;

// What a visitor wants to happen to the record it has seen.
enum class Visit { keep, remove };

template <typename Item>
class RecordList : public Serializable {
public:
    using Record = std::shared_ptr<Item>;

    RecordList(const RecordList&) = delete;
    RecordList& operator=(const RecordList&) = delete;

    // Each record that fails to encode is printed, and the others are written nevertheless.
    [[nodiscard]] bool toNetwork(kx_file& to) const final;
    // Appends what it reads. False, and printed, when a record cannot be read; those before it
    // stay. False and silent when there is not even a count.
    [[nodiscard]] bool fromNetwork(kx_file& from) final;
    [[nodiscard]] bool toDisk(kx_file& to) const final;
    // Appends as well. False and silent when the marker is another.
    [[nodiscard]] bool fromDisk(kx_file& from) final;
    // An estimate for sizing a packet; never below the bytes of the network form.
    [[nodiscard]] std::uint32_t size() const final;

    // False when the file cannot be opened or holds something else.
    [[nodiscard]] bool loadFromFile(const std::string& name);
    // Replaces the file as a whole: at any moment it is the old one or the new one. False, and the
    // old one still there, when that fails or a record does not encode.
    [[nodiscard]] bool saveToFile(const std::string& name) const;

    void append(Record record);
    // True when the list has such a record already; the given one then stays with the caller alone.
    bool addUnique(const Record& record);
    // Takes one record out of the list; false when it is not in it.
    bool remove(const Item& record);
    void clear();
    [[nodiscard]] std::vector<Record> removeAll();
    // Replaces the records by copies of another list's.
    void copyFrom(const RecordList& other);
    [[nodiscard]] std::size_t count() const;

    // In list order.
    void forEach(const std::function<void(const Item&)>& see) const;
    // In list order; returns what was removed.
    std::vector<Record> visit(const std::function<Visit(Item&)>& judge);

protected:
    RecordList() = default;

    // Whether two records are the same for addUnique.
    [[nodiscard]] virtual bool same(const Item& a, const Item& b) const = 0;
    // The list's own line about a record that could not be decoded.
    virtual void report_network_failure() const = 0;
    virtual void report_disk_failure() const = 0;

    // Null when none satisfies the test.
    template <typename Test>
    [[nodiscard]] Record first(const Test& test) const REQUIRES(lock_) {
        for (const Record& record : records_) {
            if (test(*record)) return record;
        }
        return nullptr;
    }

    mutable kx_critical_section lock_;
    std::vector<Record> records_ GUARDED_BY(lock_);
};

extern template class RecordList<Meta>;
extern template class RecordList<ServerMeta>;

}  // namespace vorrim
