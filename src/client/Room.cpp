#include "client/Room.h"

#include <algorithm>
#include <memory>

#include "base/file/primitives.h"
#include "client/ClientConnection.h"
#include "client/messages.h"

namespace vorrim {

std::vector<Room::Member>::iterator Room::find(const ClientConnection& client) {
    return std::find_if(members_.begin(), members_.end(),
                        [&](const Member& member) { return member.client == &client; });
}

std::size_t Room::member_count() const {
    const kx_guard hold(lock_);
    return members_.size();
}

void Room::join(ClientConnection& client, RecordView record) {
    const auto joined =
        std::make_shared<const Packet>(make_record_packet(Opcode::OP_ROOM_JOINED, record));
    const kx_guard hold(lock_);
    if (find(client) != members_.end()) return;
    Packet present = begin_packet(Opcode::OP_ROOM_MEMBERS, 1024);
    write_32(present.body(), static_cast<std::uint32_t>(members_.size()));
    for (const Member& member : members_) {
        write_bytes(present.body(), member.record);
        member.client->send(joined);
    }
    present.finish();
    client.send(present);
    members_.push_back({&client, {record.bytes().begin(), record.bytes().end()}});
}

void Room::leave(ClientConnection& client) {
    const auto left =
        std::make_shared<const Packet>(make_id_packet(Opcode::OP_ROOM_LEFT, client.id()));
    const kx_guard hold(lock_);
    const auto member = find(client);
    if (member == members_.end()) return;
    members_.erase(member);
    if (members_.size() < members_.capacity() / 4) members_.shrink_to_fit();
    for (const Member& other : members_)
        other.client->send(left);
}

void Room::broadcast(ClientId sender, std::string_view text) {
    Packet packet = begin_packet(Opcode::OP_ROOM_TEXT, static_cast<std::uint32_t>(text.size()) + 7);
    write_32(packet.body(), sender.value());
    write_string(text, packet.body());
    packet.finish();
    const auto shared = std::make_shared<const Packet>(std::move(packet));
    const kx_guard hold(lock_);
    for (const Member& member : members_)
        member.client->send(shared);
}

void Room::update_record(const ClientConnection& client, RecordView record) {
    const kx_guard hold(lock_);
    const auto member = find(client);
    if (member == members_.end()) return;
    member->record.assign(record.bytes().begin(), record.bytes().end());
}

}  // namespace vorrim
