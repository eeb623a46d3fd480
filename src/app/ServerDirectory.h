#pragma once
// The other servers of the network: those that this server knows, and those of them that it has
// heard from since the last sweep began.
//
//     serverList.met ──► known ◄── greetings, lists ──────┐
//                    ◄── save  │                          │ heard from
//     seed ────────────► known │ sweep: hello to each     ▼
//                              └── silent six times: out  working ──► clients, other servers
//
// A server that leaves six hellos in a row unanswered is forgotten by the seventh sweep. Only a
// public server sends and answers hellos; the list is loaded, seeded and saved in any case.
//
// There is room for so many servers, and for so many of a network of 256 addresses. A server that
// has answered from its own address takes the place of one that was only heard of; otherwise who is
// there stays.
//
// Ownership   The lists share their records, so neither can be left with one that is gone; a server
//             that is forgotten leaves both in the same step.
// Threads     `start` before the others; `save` and `sweep` belong to the housekeeping, though any
//             thread may call them; the rest from any thread. The lock here comes before those of
//             the two lists, and nothing else is locked or sent while it is held.

#include <cstddef>
#include <cstdint>
#include <functional>

#include "app/HousekeepingTask.h"
#include "app/ServerSettings.h"
#include "base/Annotations.h"
#include "base/file/kx_memory_file.h"
#include "base/kx_critical_section.h"
#include "client/KnownServers.h"
#include "meta/ServerList.h"
#include "net/LimitLog.h"
#include "net/kx_net.h"

namespace vorrim {

class ServerDirectory final : public KnownServers, public DirectoryUpkeep {
public:
    // A server that has left more pings than this unanswered is forgotten.
    static constexpr std::uint32_t kMostUnansweredPings = 5;

    // All must outlive the directory.
    ServerDirectory(const ServerSettings& settings, kx_net_protocol& net, LimitLog& limits);
    ServerDirectory(const ServerDirectory&) = delete;
    ServerDirectory& operator=(const ServerDirectory&) = delete;

    // Loads the server list file; without a good one, or with an empty one, begins with the seed
    // server. Raises kx_err when the file ends within a record's fixed fields.
    void start();
    void save() override;
    void sweep() override;

    [[nodiscard]] bool is_public() const override { return settings_.publicServer; }
    void onHello(std::uint32_t address, std::uint16_t port, Told told) override;
    void onListHeader(std::uint32_t address, std::uint16_t port, Told told) override;
    void learn(std::uint32_t address, std::uint16_t port, Told told) override;
    void writeWorkingList(kx_memory_file& out) const override;

    // In list order. The callback must not use the directory.
    void forEachKnown(const std::function<void(const ServerMeta&)>& see) const;
    void forEachWorking(const std::function<void(const ServerMeta&)>& see) const;

private:
    void heardFrom(const ServerList::Record& server, Told told) REQUIRES(lock_);
    // The known server with this address and port, made when it is missing; null when there is no
    // room for it.
    [[nodiscard]] ServerList::Record findOrAdd(std::uint32_t address, std::uint16_t port, Told told)
        REQUIRES(lock_);
    [[nodiscard]] bool makeRoom(std::uint32_t address, Told told) REQUIRES(lock_);
    void write_own_address(kx_memory_file& out) const;

    const ServerSettings& settings_;
    kx_net_protocol& net_;
    LimitLog& limits_;

    kx_critical_section lock_;  // makes one step of what concerns both lists
    ServerList known_;
    ServerList working_;
    kx_critical_section save_lock_;  // one save at a time
};

}  // namespace vorrim
