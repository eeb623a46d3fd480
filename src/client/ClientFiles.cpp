// Publishing and sources over TCP.

#include <algorithm>
#include <array>

#include "base/file/primitives.h"
#include "client/ClientConnection.h"
#include "meta/FileHash.h"
#include "meta/FrozenRecord.h"
#include "net/socketPool.h"

namespace vorrim {

namespace {

// Published in one turn: the neighbours of whoever publishes many wait for no more.
constexpr std::size_t kFilesAtOnce = 32;
constexpr std::size_t kSourceRequest = kHeaderSize + 1 + kHashSize;

}  // namespace

std::size_t ClientConnection::handle_run(std::span<const std::byte>& bytes, std::size_t most) {
    if (rejected_) return 0;
    most = std::min(most, FileIndex::kRun);
    std::array<FileHash, FileIndex::kRun> wanted;
    std::size_t count = 0;
    std::span<const std::byte> rest = bytes;
    for (; count < most && rest.size() >= kSourceRequest; rest = rest.subspan(kSourceRequest)) {
        const Packet::Frame frame = Packet::frame(rest);
        if (frame.payload_size != kSourceRequest - kHeaderSize ||
            std::to_integer<std::uint8_t>(rest[kHeaderSize]) != to_byte(Opcode::OP_GET_SOURCES)) {
            break;
        }
        std::ranges::copy(rest.subspan(kHeaderSize + 1, kHashSize), wanted[count++].bytes.begin());
    }
    // A single question finds its way as fast by itself.
    if (count < 2) return 0;
    bytes = bytes.subspan(count * kSourceRequest);
    service_.files.find_sources(std::span(wanted).first(count),
                                [this](const FileHash& hash, const FileIndex::Found& found) {
                                    Reply reply(*this, Opcode::OP_FOUND_SOURCES);
                                    FileIndex::write_found(hash, found, reply.body());
                                    reply.finish();
                                });
    return count;
}

Connection::Verdict ClientConnection::offer_files(kx_memory_file& payload) {
    auto records = read_frozen_list(payload);
    if (!records) return Verdict::close;
    if (limited()) refuse_excess(*records);
    weigh(static_cast<unsigned>(std::min<std::size_t>(records->size(), kFilesAtOnce)));
    if (records->size() <= kFilesAtOnce) {
        publish(*records);
    } else {
        offer_ = std::make_unique<Offer>(Offer{.records = std::move(*records)});
        take_turns();
    }
    return Verdict::keep;
}

void ClientConnection::publish(std::span<FrozenRecord> records) {
    files_ += service_.files.publish(records, id(), static_cast<std::uint16_t>(port_));
}

bool ClientConnection::publish_more() {
    const std::span<FrozenRecord> rest = std::span(offer_->records).subspan(offer_->published);
    publish(rest.first(std::min(rest.size(), kFilesAtOnce)));
    offer_->published += kFilesAtOnce;
    if (rest.size() > kFilesAtOnce) return false;
    offer_.reset();
    return true;
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
    Reply reply(*this, Opcode::OP_FOUND_SOURCES);
    if (service_.files.write_sources(hash, reply.body())) reply.finish();
}

}  // namespace vorrim
