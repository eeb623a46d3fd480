#pragma once
// All client connections in order of arrival, and the identifiers they are known by.
//
// A client that is found here is used while the table's lock is still held, so that it cannot be
// torn down in between; that is why the look-ups take a function instead of returning a pointer.
//
// Threads: any thread, any operation. Readers share the lock. In the server's lock order the table
// comes first.

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "base/Annotations.h"
#include "base/Random.h"
#include "base/file/kx_memory_file.h"
#include "base/kx_critical_section.h"
#include "base/kx_shared_section.h"
#include "client/ArrivalMap.h"
#include "client/ClientMatches.h"
#include "client/ClientRoll.h"
#include "client/index/KeyedHash.h"
#include "meta/ClientId.h"
#include "meta/FileHash.h"
#include "meta/FrozenRecord.h"
#include "meta/Packet.h"
#include "search/Search.h"

namespace vorrim {

class ClientConnection;

// What the table keeps in each connection.
class TableEntry {
public:
    // Position in the order of arrival; fixed once the connection is in the table.
    [[nodiscard]] std::uint64_t arrival() const noexcept { return arrival_; }

protected:
    TableEntry() = default;
    ~TableEntry() = default;

private:
    friend class ClientTable;

    std::uint64_t arrival_ = 0;
    ClientId id_;
    FrozenRecord record_;  // empty until the first login
};

class ClientTable final {
public:
    // `random` keys the hashes over identifiers and client hashes, which clients choose. Low
    // identifiers are handed out from `first_low_id` on.
    explicit ClientTable(Random& random, std::uint32_t first_low_id = 1);
    ClientTable(const ClientTable&) = delete;
    ClientTable& operator=(const ClientTable&) = delete;

    // Connections in the table, logged in or not.
    [[nodiscard]] std::int32_t count() const noexcept { return count_.load(); }

    // Without memory it raises bad_alloc, and nothing changes.
    void add(ClientConnection& client);
    // Takes the connection out and hands its identifier back.
    void remove(ClientConnection& client);

    // Gives the client `address` as its identifier unless somebody has it: one step.
    enum class Claim {
        given,
        held,
        held_for_now,  // by somebody who is leaving
    };
    [[nodiscard]] Claim claim(ClientConnection& client, ClientId address);
    // Gives the client a low identifier: the one released last, a fresh one, or, with an error line
    // in the output, one that nobody holds any more. False, and nothing changes, when all are held.
    [[nodiscard]] bool assign_low_id(ClientConnection& client);
    // The client's new record, as its worker has read it.
    void set_record(ClientConnection& client, FrozenRecord record);
    // Writes the client's identifier into its record.
    void stamp_record(ClientConnection& client);

    [[nodiscard]] ClientId id_of(const ClientConnection& client) const;

    // Calls `use` with the first client in order of arrival that has this identifier.
    bool with_id(ClientId id, const std::function<void(ClientConnection&)>& use) const;
    // Calls `use` with the record of the first client in order of arrival that has this hash.
    bool with_hash(const FileHash& hash, const std::function<void(RecordView)>& use) const;
    // Calls `use` with each client in order of arrival: those who are there when it begins and have
    // not left by their turn. The lock is held for a thousand at a time, so that a broadcast to all
    // keeps nobody from logging in.
    void for_each(const std::function<void(ClientConnection&)>& use) const;
    // Hands on the records that match, in order of arrival, at most as many as the limit: a step of
    // bounded length each time, until it says true. The lock is held for a step.
    [[nodiscard]] bool match_clients(ClientMatches& matches,
                                     const std::function<void(RecordView)>& use) const;

    // One packet for every connection, logged in or not.
    void send_to_all(Packet packet) const;
    void send_text_to_all(std::string_view text) const;

    // The record others see of this client.
    [[nodiscard]] RecordView record_of(const ClientConnection& client) const;

private:
    struct ById {
        KeyedHash secret;
        [[nodiscard]] static ClientId key_of(const TableEntry& entry) noexcept { return entry.id_; }
        [[nodiscard]] std::uint32_t hash(ClientId id) const noexcept {
            return secret.of(id.value());
        }
    };
    struct ByHash {
        KeyedHash secret;
        [[nodiscard]] static FileHash key_of(const TableEntry& entry) noexcept {
            return view_of(entry.record_).hash();
        }
        [[nodiscard]] std::uint32_t hash(const FileHash& hash) const noexcept {
            return digest_of(secret, hash);
        }
    };

    void set_id(ClientConnection& client, ClientId id) REQUIRES(lock_);
    void forget(const ClientConnection& client) REQUIRES(lock_);
    [[nodiscard]] std::optional<ClientId> next_low_id();
    [[nodiscard]] std::optional<ClientId> abandoned_low_id() REQUIRES(lock_);
    void release_id(ClientId id);
    [[nodiscard]] static RecordView view_of(const FrozenRecord& record) noexcept;

    mutable kx_shared_section lock_{"the client table"};
    ClientRoll roll_ GUARDED_BY(lock_);
    std::uint64_t arrivals_ GUARDED_BY(lock_) = 0;
    ArrivalMap<ClientConnection, ById> by_id_ GUARDED_BY(lock_);
    ArrivalMap<ClientConnection, ByHash> by_hash_ GUARDED_BY(lock_);

    kx_critical_section id_lock_;
    std::uint32_t next_id_ GUARDED_BY(id_lock_);  // fresh, or, once looped, to be tried next
    std::uint32_t released_id_ GUARDED_BY(id_lock_) = 0;  // one remembered identifier, or 0
    bool looped_ GUARDED_BY(id_lock_) = false;            // the fresh identifiers are used up

    std::atomic<std::int32_t> count_{0};
};

}  // namespace vorrim
