// Servers, users and call-backs.

#include "base/file/primitives.h"
#include "client/ClientConnection.h"
#include "client/messages.h"
#include "meta/FileHash.h"

namespace vorrim {

namespace {

constexpr std::uint32_t kReplyEstimate = 512;

}  // namespace

void ClientConnection::send_servers() {
    Packet list = begin_packet(Opcode::OP_SERVER_LIST, kReplyEstimate);
    service_.servers.writeWorkingList(list.body());
    list.finish();
    send(list);
    send(make_record_packet(Opcode::OP_SERVER_IDENT, service_.own_record.view()));
}

void ClientConnection::find_user(kx_memory_file& payload) {
    const FileHash hash = FileHash::read(payload);
    Reply reply(*this, Opcode::OP_USER_FOUND);
    const bool found = service_.clients.with_hash(hash, [&](RecordView record) {
        write_8(reply.body(), 1);
        write_bytes(reply.body(), record.bytes());
    });
    if (!found) write_8(reply.body(), 0);
    reply.finish();
}

void ClientConnection::request_callback(kx_memory_file& payload) {
    const ClientId wanted(read_32(payload));
    const bool asked =
        id().exceeds_low_range() && service_.clients.with_id(wanted, [&](ClientConnection& target) {
            target.send_callback(id(), static_cast<std::uint16_t>(port_));
        });
    if (!asked) send(make_id_packet(Opcode::OP_CALLBACK_FAILED, wanted));
}

}  // namespace vorrim
