// Publishing, sources and file searches over TCP.

#include <algorithm>

#include "base/file/primitives.h"
#include "client/ClientConnection.h"
#include "client/messages.h"
#include "meta/FileHash.h"
#include "meta/FrozenRecord.h"
#include "net/socketPool.h"

namespace vorrim {

namespace {

constexpr std::uint32_t kReplyEstimate = 512;
constexpr std::uint32_t kBatchEstimate = 4096;

}  // namespace

Connection::Verdict ClientConnection::offer_files(kx_memory_file& payload) {
    auto records = read_frozen_list(payload);
    if (!records) return Verdict::close;
    if (limited()) refuse_excess(*records);
    if (records->empty()) return Verdict::keep;
    published_ = true;
    files_ += service_.files.publish(std::move(*records), id(), static_cast<std::uint16_t>(port_));
    return Verdict::keep;
}

// Each record is taken as a whole or not at all.
void ClientConnection::refuse_excess(std::vector<FrozenRecord>& records) {
    const ServiceSettings& settings = service_.settings;
    LimitLog& log = pool().limits().log;
    const std::size_t too_large = std::erase_if(records, [&](const FrozenRecord& record) {
        return !settings.record_limits.admits(record.view());
    });
    if (too_large > 0) log.count(Limit::file_records, too_large);
    if (settings.max_files == 0) return;
    const std::size_t room = settings.max_files - std::min(files_, settings.max_files);
    if (records.size() <= room) return;
    log.count(Limit::client_files, records.size() - room);
    records.resize(room);
}

void ClientConnection::get_sources(kx_memory_file& payload) {
    const FileHash hash = FileHash::read(payload);
    Packet packet = begin_packet(Opcode::OP_FOUND_SOURCES, kReplyEstimate);
    if (!service_.files.write_sources(hash, packet.body())) return;
    packet.finish();
    send(packet);
}

Connection::Verdict ClientConnection::search_files(kx_memory_file& payload) {
    if (!last_search().read(payload)) return Verdict::close;
    send_file_batch();
    return Verdict::keep;
}

void ClientConnection::more_results() {
    if (search_ && search_->resume_position >= 0) send_file_batch();
}

void ClientConnection::send_file_batch() {
    Search& search = last_search();
    Packet packet = begin_packet(Opcode::OP_SEARCH_RESULTS, kBatchEstimate);
    kx_memory_file& body = packet.body();
    const std::uint32_t count_at = body.tell();
    write_32(body, 0);
    const std::uint32_t found =
        service_.files.search(search, body, service_.settings.max_search_results, id());
    store_32(body.data() + count_at, found);
    write_8(body, search.resume_position >= 0 ? 1 : 0);
    packet.finish();
    send(packet);
}

}  // namespace vorrim
