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

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/wire/harness/Bytes.h"
#include "tests/wire/harness/Reader.h"
#include "tests/wire/harness/ServerProcess.h"
#include "tests/wire/harness/Socket.h"
#include "tests/wire/harness/Wire.h"

namespace vorrim::wire {

inline constexpr std::uint16_t kClosedPort = 1;
// No client of any test has this hash.
inline constexpr Hash kNobody = {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                                  0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};

// The text of a message of the server: opcode 38.
[[nodiscard]] std::string message_in(const Bytes& payload);

class WireClient final {
public:
    explicit WireClient(const ServerProcess& server, Address from = next_address());
    // To another port of this machine than that for clients.
    WireClient(std::uint16_t port, Address from);

    // Connected and logged in under a name, with a high or a low identifier.
    [[nodiscard]] static WireClient high(const ServerProcess& server,
                                         std::string_view name = "high",
                                         Address from = next_address());
    [[nodiscard]] static WireClient low(const ServerProcess& server, std::string_view name = "low",
                                        Address from = next_address());

    // Listens at this client's address, on any free port.
    void open_door();
    // The port that the record at login announces.
    [[nodiscard]] std::uint16_t announced_port() const;

    // The id, and the texts that came with it. The record's port becomes the announced one.
    struct Welcome {
        std::uint32_t id = 0;
        std::vector<std::string> texts;
    };
    Welcome login(Record record);

    [[nodiscard]] Address address() const { return address_; }
    [[nodiscard]] std::uint32_t id() const { return id_; }
    [[nodiscard]] Source source() const { return {id_, announced_port()}; }

    void send_raw(const Bytes& bytes) const;
    void send(const Bytes& payload) const { send_raw(packet(payload)); }
    // As many of the bytes as go without waiting; how many went.
    [[nodiscard]] std::size_t send_some(const Bytes& bytes) const;

    // The payload of the next packet. The status that the server sends to everybody from time to
    // time is passed over.
    [[nodiscard]] Bytes receive() const;
    // The next packet as it stands, header included, whatever it is.
    [[nodiscard]] Bytes receive_packet() const;
    // Nothing when the server closed the connection instead.
    [[nodiscard]] std::optional<Bytes> receive_or_end() const;
    [[nodiscard]] Bytes ask(const Bytes& payload) const;
    // Every packet that the request brings.
    [[nodiscard]] std::vector<Bytes> answers(const Bytes& payload) const;
    void expect_nothing() const;
    void expect_closed() const;         // and nothing before the end
    [[nodiscard]] bool silent() const;  // nothing has come yet, not even an end

    [[nodiscard]] Results search(const Bytes& expression) const;
    [[nodiscard]] Results more() const;
    [[nodiscard]] std::vector<Record> users(const Bytes& expression) const;
    // Nothing when the server does not answer.
    [[nodiscard]] std::optional<std::vector<Source>> sources(const Hash& hash) const;
    // Returns when the server has done it.
    void publish(const std::vector<Record>& files) const;

    // Closes the connection as programs do; `reset` sends the peer an error instead of an end.
    void close() { socket_.close(); }
    void reset();
    [[nodiscard]] const Socket& socket() const { return socket_; }

private:
    [[nodiscard]] std::optional<Bytes> next_packet() const;

    Address address_;
    Socket socket_;
    Socket door_;
    std::uint32_t id_ = 0;
    mutable std::vector<std::uint8_t> unread_;  // what has come; its first `taken_` bytes are read
    mutable std::size_t taken_ = 0;
};

}  // namespace vorrim::wire
