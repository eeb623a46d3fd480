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

void ClientConnection::search_users(kx_memory_file& payload) {
    Search& search = last_search();
    if (!search.read(payload)) return;
    Packet packet = begin_packet(Opcode::OP_USER_RESULTS, kReplyEstimate);
    kx_memory_file& body = packet.body();
    const std::uint32_t count_at = body.tell();
    write_32(body, 0);
    const std::int32_t found = service_.clients.match_clients(
        search, service_.settings.max_search_results,
        [&](RecordView record) { write_bytes(body, record.bytes()); });
    store_32(body.data() + count_at, static_cast<std::uint32_t>(found));
    packet.finish();
    send(packet);
    search.resume_position = -1;
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
