#include "client/ClientConnection.h"

#include <optional>

#include "base/file/primitives.h"
#include "client/Room.h"
#include "client/messages.h"
#include "net/ReachabilityTest.h"

namespace vorrim {

namespace {

constexpr unsigned kCostly = 1;  // more than other messages

// The requests whose number is limited: those that cost much, or that others have to bear.
std::optional<Request> request_of(Opcode opcode) noexcept {
    switch (opcode) {
        case Opcode::OP_LOGIN:
            return Request::login;
        case Opcode::OP_OFFER_FILES:
            return Request::offer;
        case Opcode::OP_SEARCH_FILES:
        case Opcode::OP_MORE_RESULTS:
        case Opcode::OP_SEARCH_USERS:
            return Request::search;
        case Opcode::OP_ROOM_MESSAGE:
        case Opcode::OP_JOIN_ROOM:
            return Request::text;
        case Opcode::OP_CALLBACK_REQUEST:
            return Request::callback;
        default:
            return std::nullopt;
    }
}

}  // namespace

ClientConnection::ClientConnection(std::unique_ptr<kx_net_socket> socket, socketPool& pool,
                                   ClientService& service)
    : Connection(std::move(socket), pool), service_(service) {
    service_.clients.add(*this);
}

ClientConnection::~ClientConnection() {
    while (!farewell()) {
    }
    service_.clients.remove(*this);
}

bool ClientConnection::carry_on() {
    return offer_ ? publish_more() : search_on();
}

bool ClientConnection::farewell() {
    FileIndex& files = service_.files;
    if (!leaving_) {
        long_search_.reset();
        offer_.reset();
        if (test_ != nullptr) test_->abandon();
        if (room_ != nullptr) room_->leave(*this);
        room_ = nullptr;
        departure_ = files.begin_departure(id());
        leaving_ = true;
    }
    if (service_.ending) return true;
    if (files.continue_departure(departure_)) return false;
    if (former_ids_.empty()) return true;
    // Files of an earlier login have no connection of their own left that would withdraw them.
    const ClientId former = former_ids_.back();
    former_ids_.pop_back();
    if (!service_.clients.with_id(former, [](ClientConnection&) {})) {
        departure_ = files.begin_departure(former);
    }
    return false;
}

void ClientConnection::send_callback(ClientId address, std::uint16_t port) {
    Packet packet = begin_packet(Opcode::OP_CALLBACK, 7);
    write_32(packet.body(), address.value());
    write_16(packet.body(), port);
    packet.finish();
    send(packet);
}

Search& ClientConnection::last_search() {
    if (!search_) search_ = std::make_unique<Search>();
    return *search_;
}

void ClientConnection::sync_identifier() {
    set_identifier(service_.clients.id_of(*this).value());
}

Connection::Verdict ClientConnection::handle_message(std::uint8_t opcode, kx_memory_file& payload) {
    if (rejected_) return Verdict::close;
    const auto kind = request_of(static_cast<Opcode>(opcode));
    if (kind) {
        weigh(kCostly);
        if (spend(*kind) == Verdict::close) return Verdict::close;
    }
    switch (static_cast<Opcode>(opcode)) {
        case Opcode::OP_LOGIN:
            return login(payload);
        case Opcode::OP_GET_SERVER_LIST:
            send_servers();
            return Verdict::keep;
        case Opcode::OP_OFFER_FILES:
            return offer_files(payload);
        case Opcode::OP_SEARCH_FILES:
            return search_files(payload);
        case Opcode::OP_DISCONNECT:
            return Verdict::close;
        case Opcode::OP_GET_SOURCES:
            get_sources(payload);
            return Verdict::keep;
        case Opcode::OP_SEARCH_USERS:
            search_users(payload);
            return Verdict::keep;
        case Opcode::OP_FIND_USER:
            find_user(payload);
            return Verdict::keep;
        case Opcode::OP_CALLBACK_REQUEST:
            request_callback(payload);
            return Verdict::keep;
        case Opcode::OP_GET_ROOMS:
            send_rooms();
            return Verdict::keep;
        case Opcode::OP_ROOM_MESSAGE:
            room_message(payload);
            return Verdict::keep;
        case Opcode::OP_JOIN_ROOM:
            join_room(payload);
            return Verdict::keep;
        case Opcode::OP_CLIENT_TEXT:
            static_cast<void>(read_32(payload));
            static_cast<void>(read_string(payload));
            return Verdict::keep;
        case Opcode::OP_MORE_RESULTS:
            more_results();
            return Verdict::keep;
        default:
            return Connection::handle_message(opcode, payload);
    }
}

}  // namespace vorrim
