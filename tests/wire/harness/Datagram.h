#pragma once
// Someone who talks to the server by datagram.
//
// "No answer" is seen without waiting for a silence to end: the datagram in question is followed by
// a status request, and the first thing that comes back must be the status.

#include <cstdint>
#include <vector>

#include "tests/wire/harness/Bytes.h"
#include "tests/wire/harness/ServerProcess.h"
#include "tests/wire/harness/Socket.h"
#include "tests/wire/harness/Wire.h"

namespace vorrim::wire {

class Datagram final {
public:
    explicit Datagram(const ServerProcess& server, Address from = next_address());
    // Hears whoever sends to it, and sends to a server that is named each time.
    explicit Datagram(Address from = next_address());

    // Sends as it is, without a marker of its own.
    void send(const Bytes& datagram) const;
    void send_to(const ServerProcess& server, const Bytes& datagram) const;
    // The next one that comes, whole; throws WireFailure at the deadline.
    [[nodiscard]] Bytes receive() const;
    [[nodiscard]] Bytes ask(const Bytes& datagram) const;

    [[nodiscard]] Status status() const;
    // Every datagram that the request brings, up to the status that closes the row.
    [[nodiscard]] std::vector<Bytes> all_answers(const Bytes& request) const;
    // The same, each read as one result record.
    [[nodiscard]] std::vector<Record> results(const Bytes& request) const;
    // Throws WireFailure when an answer to an earlier datagram comes.
    void expect_nothing() const;

    // One status request and a short wait; for a server that is just starting.
    [[nodiscard]] bool answers(
        std::chrono::milliseconds within = std::chrono::milliseconds(50)) const;

    [[nodiscard]] Address address() const { return address_; }
    [[nodiscard]] std::uint16_t port() const { return socket_.port(); }
    [[nodiscard]] bool silent() const { return !socket_.readable(std::chrono::milliseconds(0)); }

private:
    Address address_;
    Socket socket_;
};

}  // namespace vorrim::wire
