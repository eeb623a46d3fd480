#include "tests/wire/harness/WireClient.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace vorrim::wire {

namespace {

constexpr std::uint32_t kServerStatus = 0x34;
constexpr std::size_t kHeader = 5;

const Bytes& nobody_found() {
    static const Bytes answer = hex("3F 00");
    return answer;
}

WireClient logged_in(const ServerProcess& server, std::string_view name, Address from, bool open) {
    static std::atomic<std::uint32_t> people{0};
    WireClient client(server, from);
    if (open) client.open_door();
    client.login(client_record(hash_of(++people, 0xC1), name));
    return client;
}

}  // namespace

WireClient::WireClient(const ServerProcess& server, Address from)
    : WireClient(server.ports().client(), from) {}

WireClient::WireClient(std::uint16_t port, Address from)
    : address_(from), socket_(Socket::open(SOCK_STREAM)) {
    const int on = 1;
    ::setsockopt(socket_.descriptor(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    timeval patience{};
    patience.tv_sec = kDeadline.count();
    ::setsockopt(socket_.descriptor(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    socket_.bind(from, 0);
    socket_.connect(kLocalhost, port);
}

WireClient WireClient::high(const ServerProcess& server, std::string_view name, Address from) {
    WireClient client = logged_in(server, name, from, true);
    if (client.id() != from.value())
        throw WireFailure("a reachable client got identifier " + std::to_string(client.id()));
    return client;
}

WireClient WireClient::low(const ServerProcess& server, std::string_view name, Address from) {
    WireClient client = logged_in(server, name, from, false);
    if (client.id() == 0 || client.id() > 0xFFFFFF)
        throw WireFailure("an unreachable client got identifier " + std::to_string(client.id()));
    return client;
}

void WireClient::open_door() {
    door_ = Socket::open(SOCK_STREAM);
    door_.bind(address_, 0);
    if (::listen(door_.descriptor(), SOMAXCONN) != 0) throw WireFailure("listen");
}

std::uint16_t WireClient::announced_port() const {
    return door_.descriptor() >= 0 ? door_.port() : kClosedPort;
}

WireClient::Welcome WireClient::login(Record record) {
    record.port = announced_port();
    send(wire::login(record));
    send(find_user(kNobody));
    Welcome welcome;
    Reader assigned(receive());
    assigned.expect_u8(0x40, "the answer to a login");
    id_ = welcome.id = assigned.u32();
    assigned.expect_end();
    for (Bytes next = receive(); next != nobody_found(); next = receive()) {
        Reader reader(next);
        reader.expect_u8(0x38, "the opcode of a welcome line");
        welcome.texts.push_back(reader.text());
        reader.expect_end();
    }
    return welcome;
}

void WireClient::send_raw(const Bytes& bytes) const {
    for (std::size_t sent = 0; sent < bytes.size();) {
        const auto moved =
            ::send(socket_.descriptor(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (moved < 0)
            throw WireFailure(std::string("the server takes no more: ") + std::strerror(errno));
        sent += static_cast<std::size_t>(moved);
    }
}

std::size_t WireClient::send_some(const Bytes& bytes) const {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const auto moved = ::send(socket_.descriptor(), bytes.data() + sent, bytes.size() - sent,
                                  MSG_NOSIGNAL | MSG_DONTWAIT);
        if (moved <= 0) break;
        sent += static_cast<std::size_t>(moved);
    }
    return sent;
}

// False when the connection ends before the first byte.
bool WireClient::read_fully(std::span<std::uint8_t> room) const {
    for (std::size_t got = 0; got < room.size();) {
        if (!socket_.readable()) throw WireFailure("the server does not answer");
        const auto moved = ::recv(socket_.descriptor(), room.data() + got, room.size() - got, 0);
        if (moved <= 0 && got == 0) return false;
        if (moved <= 0) throw WireFailure("the connection ends inside a packet");
        got += static_cast<std::size_t>(moved);
    }
    return true;
}

std::optional<Bytes> WireClient::receive_or_end() const {
    for (;;) {
        std::array<std::uint8_t, kHeader> header{};
        if (!read_fully(header)) return std::nullopt;
        Reader reader{Bytes(std::span(header))};
        reader.expect_u8(0xE3, "the marker of a packet");
        const std::uint32_t length = reader.u32();
        constexpr std::uint32_t kPlausible = 32U << 20U;
        if (length == 0 || length > kPlausible)
            throw WireFailure("a packet of " + std::to_string(length) + " bytes comes");
        std::vector<std::uint8_t> payload(length);
        if (!read_fully(payload)) throw WireFailure("the connection ends inside a packet");
        if (payload.front() != kServerStatus) return Bytes(payload);
    }
}

Bytes WireClient::receive() const {
    if (std::optional<Bytes> payload = receive_or_end()) return *payload;
    throw WireFailure("the server closed the connection");
}

Bytes WireClient::receive_packet() const {
    std::array<std::uint8_t, kHeader> header{};
    if (!read_fully(header)) throw WireFailure("the server closed the connection");
    const Bytes read{std::span(header)};
    std::vector<std::uint8_t> payload(Reader(read.from(1)).u32());
    if (!payload.empty() && !read_fully(payload))
        throw WireFailure("the connection ends inside a packet");
    return Bytes(read).add(Bytes(payload));
}

Bytes WireClient::ask(const Bytes& payload) const {
    send(payload);
    return receive();
}

std::vector<Bytes> WireClient::answers(const Bytes& payload) const {
    send(payload);
    send(find_user(kNobody));
    std::vector<Bytes> all;
    for (Bytes next = receive(); next != nobody_found(); next = receive())
        all.push_back(std::move(next));
    return all;
}

void WireClient::expect_nothing() const {
    if (const Bytes answer = ask(find_user(kNobody)); answer != nobody_found())
        throw WireFailure("something came: " + ::testing::PrintToString(answer));
}

void WireClient::expect_closed() const {
    if (const std::optional<Bytes> payload = receive_or_end())
        throw WireFailure("instead of an end came: " + ::testing::PrintToString(*payload));
}

bool WireClient::silent() const {
    return !socket_.readable(std::chrono::milliseconds(0));
}

Results WireClient::search(const Bytes& expression) const {
    return read_results(ask(search_files(expression)));
}

Results WireClient::more() const {
    return read_results(ask(more_results()));
}

std::vector<Record> WireClient::users(const Bytes& expression) const {
    return read_users(ask(search_users(expression)));
}

std::optional<std::vector<Source>> WireClient::sources(const Hash& hash) const {
    const std::vector<Bytes> all = answers(get_sources(hash));
    if (all.empty()) return std::nullopt;
    if (all.size() > 1) throw WireFailure("one question for sources brought two answers");
    return read_sources(all.front(), hash);
}

void WireClient::publish(const std::vector<Record>& files) const {
    send(offer(files));
    expect_nothing();
}

void WireClient::reset() {
    const linger at_once{1, 0};
    ::setsockopt(socket_.descriptor(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    socket_.close();
}

}  // namespace vorrim::wire
