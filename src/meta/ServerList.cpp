#include "meta/ServerList.h"

#include "base/Output.h"

namespace vorrim {

ServerList::Record ServerList::find_locked(std::uint32_t address, std::uint16_t port) const {
    return first(
        [&](const ServerMeta& server) { return server.id() == address && server.port() == port; });
}

ServerList::Record ServerList::find(std::uint32_t address, std::uint16_t port) const {
    const kx_guard hold(lock_);
    return find_locked(address, port);
}

ServerList::Record ServerList::findOrAdd(std::uint32_t address, std::uint16_t port) {
    const kx_guard hold(lock_);
    if (Record known = find_locked(address, port)) return known;
    Record fresh = std::make_shared<ServerMeta>();
    fresh->setId(address);
    fresh->setPort(port);
    records_.push_back(fresh);
    return fresh;
}

bool ServerList::same(const ServerMeta& a, const ServerMeta& b) const {
    return a.id() == b.id() && a.port() == b.port();
}

void ServerList::report_network_failure() const {
    current_output().printVerbose("ERROR: ServerList::fromBytes()\n");
}

void ServerList::report_disk_failure() const {
    current_output().printError("ERROR: ServerList::fromBytes()\n");
}

}  // namespace vorrim
