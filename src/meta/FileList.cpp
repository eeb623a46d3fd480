#include "meta/FileList.h"

#include "base/Output.h"
#include "meta/Diagnostics.h"

namespace vorrim {

FileList::Record FileList::findByHash(const FileHash& hash) const {
    const kx_guard hold(lock_);
    return first([&](const Meta& record) { return record.hash() == hash; });
}

void FileList::setOwner(ClientId id, std::uint16_t port) {
    const kx_guard hold(lock_);
    for (const Record& record : records_) {
        record->setId(id.value());
        record->setPort(port);
    }
}

bool FileList::same(const Meta& a, const Meta& b) const {
    return a.hash() == b.hash();
}

void FileList::report_network_failure() const {
    diagnostics::unreadable_file_list();
}

void FileList::report_disk_failure() const {
    current_output().printError("ERROR: FileList::fromDisk()\n");
}

}  // namespace vorrim
