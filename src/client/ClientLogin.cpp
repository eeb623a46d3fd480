// How a client gets its identifier and is let in.
//
//     record ──► address free? ─ yes ─► can it be called back? ─ yes ─► high identifier ─┐
//                │    ▲   │                      │ no, or 8 seconds are over             ├─► gate
//                └────┘   └─ no ─────────────────┴──────────────────► low identifier ────┘
//          soon: its holder is leaving

#include <chrono>
#include <new>

#include "base/Output.h"
#include "base/file/primitives.h"
#include "base/kx_err.h"
#include "client/ClientConnection.h"
#include "client/Room.h"
#include "client/messages.h"
#include "meta/TagNames.h"
#include "net/ReachabilityTest.h"
#include "net/socketPool.h"

namespace vorrim {

namespace {

constexpr std::chrono::milliseconds kReachabilityLimit{8000};
// Between two looks whether the earlier connection of a client that comes back has left.
constexpr std::chrono::milliseconds kHoldersPause{5};

// Logins on one connection whose tags are kept, when each has as many as it may.
constexpr std::uint32_t kRecordsJoined = 8;

constexpr std::string_view kOutOfDate =
    "You have an out of date client please go to https://vorrim.example/ and upgrade.";

// A login on a connection that has one already keeps the tags of the earlier record, in front.
FrozenRecord with_earlier_tags(RecordView earlier, const FrozenRecord& latest) {
    constexpr std::size_t kTags = RecordLayout::tags;
    const RecordView view = latest.view();
    kx_memory_file joined(static_cast<std::uint32_t>(earlier.bytes().size()) + 64);
    write_bytes(joined, view.bytes().first(RecordLayout::tag_count));
    write_32(joined, earlier.tag_count() + view.tag_count());
    write_bytes(joined, earlier.bytes().subspan(kTags));
    write_bytes(joined, view.bytes().subspan(kTags));
    kx_memory_file stream = kx_memory_file::reading(joined.written());
    return FrozenRecord::from_network(stream);
}

}  // namespace

Connection::Verdict ClientConnection::login(kx_memory_file& payload) {
    FrozenRecord record = FrozenRecord::from_network(payload);
    if (record.empty()) return Verdict::close;
    const RecordView earlier = service_.clients.record_of(*this);
    if (!admits(earlier, record.view())) {
        pool().limits().log.count(Limit::client_records);
        return Verdict::close;
    }
    if (earlier.tag_count() > 0) {
        if (earlier.bytes().size() + record.view().bytes().size() > kMaxPayload) {
            return Verdict::close;
        }
        record = with_earlier_tags(earlier, record);
    }
    allowLongPackets();
    // Also what somebody left here who had the identifier before, and could not withdraw it.
    if (id() != ClientId() && service_.files.has_files_of(id())) former_ids_.push_back(id());
    port_ = static_cast<std::int16_t>(record.view().port());
    service_.clients.set_record(*this, std::move(record));
    if (room_ != nullptr) room_->update_record(*this, service_.clients.record_of(*this));

    pause();
    claim_address();
    return Verdict::keep;
}

void ClientConnection::claim_address() {
    switch (service_.clients.claim(*this, ClientId(peer()))) {
        case ClientTable::Claim::given:
            sync_identifier();
            ReachabilityTest::start(pool(), peer(), static_cast<std::uint16_t>(port_),
                                    kReachabilityLimit, test_,
                                    [this](bool reachable) { reachability_known(reachable); });
            break;
        case ClientTable::Claim::held:
            reachability_known(false);
            break;
        case ClientTable::Claim::held_for_now:
            setAlarm(pool().clock().now() + kHoldersPause);
            break;
    }
}

Turn ClientConnection::onAlarm() {
    try {
        claim_address();
        return Turn::wait;
    } catch (const kx_err&) {
    } catch (const std::bad_alloc&) {
    }
    return Turn::finished;  // or it would wait for ever
}

// A record that is kept may hold the tags of several logins.
bool ClientConnection::admits(RecordView earlier, RecordView latest) const {
    const RecordLimits& bounds = service_.settings.record_limits;
    if (!limited()) return true;
    if (!bounds.admits(latest)) return false;
    return bounds.bytes == 0 || earlier.bytes().size() + latest.bytes().size() <=
                                    std::size_t{kRecordsJoined} * bounds.bytes;
}

void ClientConnection::reachability_known(bool reachable) {
    // This is the test's turn: what it raised would leave the connection waiting for ever.
    try {
        const Answering answering(*this);
        if (reachable) {
            finish_login();
        } else {
            take_low_id();
        }
    } catch (const kx_err&) {
        close();
    } catch (const std::bad_alloc&) {
        close();
    }
    resume();
}

void ClientConnection::take_low_id() {
    if (!service_.clients.assign_low_id(*this)) {
        close();
        return;
    }
    sync_identifier();
    finish_login();
}

void ClientConnection::finish_login() {
    service_.clients.stamp_record(*this);
    if (room_ != nullptr) room_->update_record(*this, service_.clients.record_of(*this));
    current_output().printVerbose("ID=%d \n", static_cast<int>(id().value()));
    send(make_id_packet(Opcode::OP_ID_ASSIGNED, id()));
    gate_version();
}

void ClientConnection::gate_version() {
    const auto version = static_cast<std::int32_t>(
        service_.clients.record_of(*this).int_tag(wire_name(TagId::Version)));
    if (version < service_.settings.min_version || version > service_.settings.max_version) {
        send(make_text_packet(Opcode::OP_SERVER_MESSAGE, kOutOfDate));
        rejected_ = true;
        return;
    }
    service_.welcome.for_each(
        [this](std::string_view line) { send(make_text_packet(Opcode::OP_SERVER_MESSAGE, line)); });
}

}  // namespace vorrim
