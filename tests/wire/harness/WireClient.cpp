#include "tests/wire/harness/WireClient.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <netinet/tcp.h>

namespace vorrim::wire {

std::string message_in(const Bytes& payload) {
    Reader reader(payload, 0x38);
    std::string text = reader.text();
    reader.expect_end();
    return text;
}

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
    socket_.set(IPPROTO_TCP, TCP_NODELAY, 1);
    const timeval patience{kDeadline.count(), 0};
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
    door_.listen();
}

std::uint16_t WireClient::announced_port() const {
    return door_.descriptor() >= 0 ? door_.port() : kClosedPort;
}

WireClient::Welcome WireClient::login(Record record) {
    record.port = announced_port();
    send(wire::login(record));
    send(find_user(kNobody));
    Welcome welcome;
    Reader assigned(receive(), 0x40);
    id_ = welcome.id = assigned.u32();
    assigned.expect_end();
    for (Bytes next = receive(); next != nobody_found(); next = receive())
        welcome.texts.push_back(message_in(next));
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

// Nothing when the connection ends before its first byte.
std::optional<Bytes> WireClient::next_packet() const {
    constexpr std::uint32_t kPlausible = 32U << 20U;
    for (;;) {
        const auto waiting = std::span(std::as_const(unread_)).subspan(taken_);
        if (waiting.size() >= kHeader) {
            Reader header(Bytes(waiting.first(kHeader)), 0xE3);
            const std::uint32_t length = header.u32();
            if (length == 0 || length > kPlausible)
                throw WireFailure("a packet of " + std::to_string(length) + " bytes comes");
            if (waiting.size() >= kHeader + length) {
                taken_ += kHeader + length;
                return Bytes(waiting.first(kHeader + length));
            }
        }
        unread_.erase(unread_.begin(), unread_.end() - static_cast<std::ptrdiff_t>(waiting.size()));
        taken_ = 0;
        if (!socket_.readable()) throw WireFailure("the server does not answer");
        std::array<std::uint8_t, 65536> room{};
        const auto count = ::recv(socket_.descriptor(), room.data(), room.size(), 0);
        if (count <= 0 && unread_.empty()) return std::nullopt;
        if (count <= 0) throw WireFailure("the connection ends inside a packet");
        unread_.insert(unread_.end(), room.begin(), room.begin() + count);
    }
}

std::optional<Bytes> WireClient::receive_or_end() const {
    std::optional<Bytes> next = next_packet();
    while (next && (*next)[kHeader] == kServerStatus)
        next = next_packet();
    if (next) next = next->from(kHeader);
    return next;
}

Bytes WireClient::receive() const {
    if (std::optional<Bytes> payload = receive_or_end()) return *payload;
    throw WireFailure("the server closed the connection");
}

Bytes WireClient::receive_packet() const {
    if (std::optional<Bytes> whole = next_packet()) return *whole;
    throw WireFailure("the server closed the connection");
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
    return taken_ == unread_.size() && !socket_.readable(std::chrono::milliseconds(0));
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
