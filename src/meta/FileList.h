#pragma once
// The files that a client publishes, or any other list of plain records. Records with the same hash
// are the same for addUnique.

#include <cstdint>

#include "meta/ClientId.h"
#include "meta/FileHash.h"
#include "meta/RecordList.h"

namespace vorrim {

class FileList final : public RecordList<Meta> {
public:
    // The first record with this hash; null when there is none. Any thread.
    [[nodiscard]] Record findByHash(const FileHash& hash) const;
    // Makes every record one that this client offers. Any thread.
    void setOwner(ClientId id, std::uint16_t port);

private:
    [[nodiscard]] bool same(const Meta& a, const Meta& b) const override;
    void report_network_failure() const override;
    void report_disk_failure() const override;
};

}  // namespace vorrim
