#pragma once
// A client of the network: one TCP connection from an address of its own.
//
// Blocking, with a deadline on every wait; whatever does not come throws WireFailure.
//
// "No reply" is seen without waiting for a silence to end: the request in question is followed by a
// question whose answer is known, and the next packet that comes must be that answer.
//
// Reachable  A client with an open door (a listener) gets its address as identifier. One without
//            announces a port where nobody listens, is refused at once, and gets a low identifier.

#include <gtest/gtest.h>
#include <netinet/tcp.h>

#include "tests/wire/harness/Reader.h"
#include "tests/wire/harness/ServerProcess.h"

namespace vorrim::wire {

inline constexpr std::uint16_t kClosedPort = 1;
// No client of any test has this hash.
inline constexpr Hash kNobody = {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                                  0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};

inline const Bytes kNobodyFound = hex("3F 00");  // the answer to a question for it

// The text of a message of the server: opcode 38.
[[nodiscard]] inline std::string message_in(const Bytes& payload) {
    return read_whole(payload, 0x38, [](Reader& reader) { return reader.text(); });
}

class WireClient final {
public:
    explicit WireClient(const ServerProcess& server, Address from = next_address())
        : WireClient(server.ports().client(), from) {}
    // To another port of this machine than that for clients.
    WireClient(std::uint16_t port, Address from) : address_(from) {
        socket_.set(IPPROTO_TCP, TCP_NODELAY, 1);
        socket_.set(SOL_SOCKET, SO_SNDTIMEO, timeval{kDeadline.count(), 0});
        socket_.bind(from, 0);
        socket_.connect(kLocalhost, port);
    }

    // Connected and logged in under a name, with a high or a low identifier.
    [[nodiscard]] static WireClient high(const ServerProcess& server,
                                         std::string_view name = "high",
                                         Address from = next_address()) {
        return logged_in(server, name, from, true);
    }
    [[nodiscard]] static WireClient low(const ServerProcess& server, std::string_view name = "low",
                                        Address from = next_address()) {
        return logged_in(server, name, from, false);
    }
    // Listens at this client's address, on any free port.
    void open_door() {
        door_ = Socket::open(SOCK_STREAM);
        door_.bind(address_, 0);
        door_.listen();
    }
    // The port that the record at login announces.
    [[nodiscard]] std::uint16_t announced_port() const {
        return door_.descriptor() >= 0 ? door_.port() : kClosedPort;
    }

    // The id, and the texts that came with it. The record's port becomes the announced one.
    struct Welcome {
        std::uint32_t id = 0;
        std::vector<std::string> texts;
    };
    Welcome login(Record record) {
        record.port = announced_port();
        const std::vector<Bytes> all = answers(wire::login(record));
        Welcome welcome{id_ = Reader(all.at(0), 0x40).u32(), {}};
        for (std::size_t i = 1; i < all.size(); ++i)
            welcome.texts.push_back(message_in(all[i]));
        return welcome;
    }

    [[nodiscard]] Address address() const { return address_; }
    [[nodiscard]] std::uint32_t id() const { return id_; }
    [[nodiscard]] Source source() const { return {id_, announced_port()}; }

    void send_raw(const Bytes& bytes) const {
        if (send_as_far_as_it_goes(bytes, 0) < bytes.size())
            throw WireFailure(std::string("the server takes no more: ") + std::strerror(errno));
    }
    void send(const Bytes& payload) const { send_raw(packet(payload)); }
    // As many of the bytes as go without waiting; how many went.
    [[nodiscard]] std::size_t send_some(const Bytes& bytes) const {
        return send_as_far_as_it_goes(bytes, MSG_DONTWAIT);
    }

    // The payload of the next packet. The status that the server sends to everybody from time to
    // time is passed over.
    [[nodiscard]] Bytes receive() const {
        if (std::optional<Bytes> payload = receive_or_end()) return *payload;
        throw WireFailure("the server closed the connection");
    }
    // The next packet as it stands, header included, whatever it is.
    [[nodiscard]] Bytes receive_packet() const {
        if (std::optional<Bytes> whole = next_packet()) return *whole;
        throw WireFailure("the server closed the connection");
    }
    // Nothing when the server closed the connection instead.
    [[nodiscard]] std::optional<Bytes> receive_or_end() const {
        std::optional<Bytes> next = next_packet();
        while (next && (*next)[kHeader] == kServerStatus)
            next = next_packet();
        if (next) next = next->from(kHeader);
        return next;
    }
    [[nodiscard]] Bytes ask(const Bytes& payload) const {
        send(payload);
        return receive();
    }
    // Every packet that the request brings.
    [[nodiscard]] std::vector<Bytes> answers(const Bytes& payload) const {
        send(payload);
        send(find_user(kNobody));
        std::vector<Bytes> all;
        for (Bytes next = receive(); next != kNobodyFound; next = receive())
            all.push_back(std::move(next));
        return all;
    }
    void expect_nothing() const {
        if (const Bytes answer = ask(find_user(kNobody)); answer != kNobodyFound)
            throw WireFailure("something came: " + ::testing::PrintToString(answer));
    }
    // And nothing before the end.
    void expect_closed() const {
        if (const std::optional<Bytes> payload = receive_or_end())
            throw WireFailure("instead of an end came: " + ::testing::PrintToString(*payload));
    }
    // Nothing has come yet, not even an end.
    [[nodiscard]] bool silent() const {
        return taken_ == unread_.size() && !socket_.readable(std::chrono::milliseconds(0));
    }

    [[nodiscard]] Results search(const Bytes& expression) const {
        return read_results(ask(search_files(expression)));
    }
    [[nodiscard]] Results more() const { return read_results(ask(more_results())); }
    [[nodiscard]] std::vector<Record> users(const Bytes& expression) const {
        return read_users(ask(search_users(expression)));
    }
    // Nothing when the server does not answer.
    [[nodiscard]] std::optional<std::vector<Source>> sources(const Hash& hash) const {
        const std::vector<Bytes> all = answers(get_sources(hash));
        if (all.empty()) return std::nullopt;
        if (all.size() > 1) throw WireFailure("one question for sources brought two answers");
        return read_sources(all.front(), hash);
    }
    // Returns when the server has done it.
    void publish(const std::vector<Record>& files) const {
        send(offer(files));
        expect_nothing();
    }

    // Its own end only: what the server still sends is received.
    void end_sending() const { ::shutdown(socket_.descriptor(), SHUT_WR); }
    // Closes the connection as programs do; `reset` sends the peer an error instead of an end.
    void close() { socket_.close(); }
    void reset() {
        socket_.set(SOL_SOCKET, SO_LINGER, linger{1, 0});
        socket_.close();
    }
    [[nodiscard]] const Socket& socket() const { return socket_; }

private:
    static constexpr std::uint32_t kServerStatus = 0x34;
    static constexpr std::size_t kHeader = 5;

    static WireClient logged_in(const ServerProcess& server, std::string_view name, Address from,
                                bool open) {
        static std::atomic<std::uint32_t> people{0};
        WireClient client(server, from);
        if (open) client.open_door();
        client.login(client_record(hash_of(++people, 0xC1), name));
        const bool low = client.id() > 0 && client.id() <= 0xFFFFFF;
        if (open ? client.id() != from.value() : !low)
            throw WireFailure((open ? "a reachable" : "an unreachable") +
                              (" client got identifier " + std::to_string(client.id())));
        return client;
    }

    [[nodiscard]] std::size_t send_as_far_as_it_goes(const Bytes& bytes, int flags) const {
        std::size_t sent = 0;
        while (sent < bytes.size()) {
            const auto moved = ::send(socket_.descriptor(), bytes.data() + sent,
                                      bytes.size() - sent, MSG_NOSIGNAL | flags);
            if (moved <= 0) break;
            sent += static_cast<std::size_t>(moved);
        }
        return sent;
    }

    // Nothing when the connection ends before its first byte.
    [[nodiscard]] std::optional<Bytes> next_packet() const {
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
            unread_.erase(unread_.begin(),
                          unread_.end() - static_cast<std::ptrdiff_t>(waiting.size()));
            taken_ = 0;
            if (!socket_.readable()) throw WireFailure("the server does not answer");
            std::array<std::uint8_t, 65536> room{};
            const auto count = ::recv(socket_.descriptor(), room.data(), room.size(), 0);
            if (count <= 0 && unread_.empty()) return std::nullopt;
            if (count <= 0) throw WireFailure("the connection ends inside a packet");
            unread_.insert(unread_.end(), room.begin(), room.begin() + count);
        }
    }

    Address address_;
    Socket socket_ = Socket::open(SOCK_STREAM);
    Socket door_;
    std::uint32_t id_ = 0;
    mutable std::vector<std::uint8_t> unread_;  // what has come; its first `taken_` bytes are read
    mutable std::size_t taken_ = 0;
};

// So many clients who have not logged in. The server knows each before the next one comes.
[[nodiscard]] inline std::vector<WireClient> strangers(const ServerProcess& server,
                                                       std::size_t count) {
    std::vector<WireClient> all;
    while (all.size() < count)
        all.emplace_back(server).expect_nothing();
    return all;
}

}  // namespace vorrim::wire
