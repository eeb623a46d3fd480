// Chat rooms, as a client sees them.

#include "base/file/primitives.h"
#include "client/ClientConnection.h"
#include "client/Room.h"
#include "client/messages.h"

namespace vorrim {

void ClientConnection::send_rooms() {
    Packet packet = begin_packet(Opcode::OP_ROOM_LIST, 256);
    service_.rooms.write_list(packet.body());
    packet.finish();
    send(packet);
}

void ClientConnection::room_message(kx_memory_file& payload) {
    const kx_string text = read_string(payload);
    if (room_ != nullptr) room_->broadcast(id(), text.view());
}

void ClientConnection::join_room(kx_memory_file& payload) {
    const std::int32_t wanted = read_16(payload);
    if (room_ != nullptr) room_->leave(*this);
    room_ = service_.rooms.find(wanted);
    if (room_ != nullptr) room_->join(*this, service_.clients.record_of(*this));
}

}  // namespace vorrim
