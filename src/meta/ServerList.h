#pragma once
// The servers that this server knows, or those of them that have been heard from lately. Its disk
// form is the whole content of the server list file:
//
//     [ 0E | count u32 | per server: address u32, port u16, tag count u32, tags ]
//
// Servers with the same address and port are the same for addUnique.

#include <cstdint>

#include "meta/RecordList.h"

namespace vorrim {

class ServerList final : public RecordList<ServerMeta> {
public:
    // The first server with this address and port; null when there is none. Any thread.
    [[nodiscard]] Record find(std::uint32_t address, std::uint16_t port) const;
    // The same, and makes the server when there is none: a record without tags, never pinged. Two
    // threads that ask for the same server get the same record. Any thread.
    [[nodiscard]] Record findOrAdd(std::uint32_t address, std::uint16_t port);

private:
    [[nodiscard]] bool same(const ServerMeta& a, const ServerMeta& b) const override;
    void report_network_failure() const override;
    void report_disk_failure() const override;
    [[nodiscard]] Record find_locked(std::uint32_t address, std::uint16_t port) const
        REQUIRES(lock_);
};

}  // namespace vorrim
