#pragma once
// A chat room: its members in the order in which they came.
//
// Threads: any thread. Every operation holds the member lock for its whole length, so that all
// members see one order of events. In the lock order a room comes after the client table and
// before the send queues.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/Annotations.h"
#include "base/kx_critical_section.h"
#include "meta/ClientId.h"
#include "meta/RecordView.h"

namespace vorrim {

class ClientConnection;

class Room final {
public:
    Room(std::int32_t id, std::string_view name) : id_(id), name_(name) {}
    Room(const Room&) = delete;
    Room& operator=(const Room&) = delete;

    [[nodiscard]] std::int32_t id() const noexcept { return id_; }
    [[nodiscard]] const std::string& name() const noexcept { return name_; }
    [[nodiscard]] std::size_t member_count() const;

    // The others are told who came, the newcomer who is there. A member who joins again is left
    // as it is.
    void join(ClientConnection& client, RecordView record);
    // The remaining members are told. Nothing happens when the client is not a member.
    void leave(ClientConnection& client);
    // Every member, the sender included, receives the text.
    void broadcast(ClientId sender, std::string_view text);
    // A member has logged in again: its record has changed.
    void update_record(const ClientConnection& client, RecordView record);

private:
    // The record is a copy: the client's own changes with its next login.
    struct Member {
        ClientConnection* client;
        std::vector<std::byte> record;
    };

    [[nodiscard]] std::vector<Member>::iterator find(const ClientConnection& client)
        REQUIRES(lock_);

    const std::int32_t id_;
    const std::string name_;
    mutable kx_critical_section lock_;
    std::vector<Member> members_ GUARDED_BY(lock_);
};

}  // namespace vorrim
