#pragma once
// Someone who talks to the server by datagram.
//
// "No answer" is seen without waiting for a silence to end: the datagram in question is followed by
// a status request, and the first thing that comes back must be the status.

#include <array>
#include <atomic>
#include <gtest/gtest.h>

#include "tests/wire/harness/Reader.h"
#include "tests/wire/harness/ServerProcess.h"

namespace vorrim::wire {

class Datagram final {
public:
    explicit Datagram(const ServerProcess& server, Address from = next_address()) : Datagram(from) {
        socket_.connect(kLocalhost, server.ports().udp());
    }
    // Hears whoever sends to it, and sends to a server that is named each time.
    explicit Datagram(Address from = next_address()) : address_(from) {
        // Room for the results of the largest search; the forced form is granted to root only.
        for (const int option : {SO_RCVBUF, SO_RCVBUFFORCE})
            socket_.set(SOL_SOCKET, option, 4 << 20);
        socket_.bind(from, 0);
    }

    // Sends as it is, without a marker of its own.
    void send(const Bytes& datagram) const {
        // A refusal is the answer to an earlier datagram to a closed port; the next wait will tell.
        const auto sent = ::send(socket_.descriptor(), datagram.data(), datagram.size(), 0);
        if (sent >= 0 && static_cast<std::size_t>(sent) != datagram.size())
            throw WireFailure("a datagram went out short");
    }
    void send_to(const ServerProcess& server, const Bytes& datagram) const {
        const sockaddr_in door = endpoint(kLocalhost, server.ports().udp());
        ::sendto(socket_.descriptor(), datagram.data(), datagram.size(), 0,
                 reinterpret_cast<const sockaddr*>(&door), sizeof door);
    }
    // The next one that comes, whole; throws WireFailure at the deadline.
    [[nodiscard]] Bytes receive() const {
        if (!socket_.readable()) throw WireFailure("no datagram came");
        std::array<std::uint8_t, 65536> room{};
        const auto count = ::recv(socket_.descriptor(), room.data(), room.size(), 0);
        if (count < 0) throw WireFailure("the datagram port is closed");
        return Bytes(std::span(room).first(static_cast<std::size_t>(count)));
    }
    [[nodiscard]] Bytes ask(const Bytes& datagram) const {
        send(datagram);
        return receive();
    }

    [[nodiscard]] Status status() const {
        const std::uint32_t challenge = next_challenge();
        const Bytes answer = ask(udp_status(challenge));
        if (!is_status(answer, challenge))
            throw WireFailure("something else than the status came: " +
                              ::testing::PrintToString(answer));
        Reader reader(answer.from(6));
        return Status{reader.u32(), reader.u32()};
    }
    // Every datagram that the request brings, up to the status that closes the row.
    [[nodiscard]] std::vector<Bytes> all_answers(const Bytes& request) const {
        const std::uint32_t challenge = next_challenge();
        send(request);
        send(udp_status(challenge));
        std::vector<Bytes> answers;
        for (Bytes answer = receive(); !is_status(answer, challenge); answer = receive())
            answers.push_back(std::move(answer));
        return answers;
    }
    // The same, each read as one result record.
    [[nodiscard]] std::vector<Record> results(const Bytes& request) const {
        std::vector<Record> records;
        for (const Bytes& answer : all_answers(request))
            records.push_back(
                read_whole(answer.from(1), 0x99, [](Reader& reader) { return reader.record(); }));
        return records;
    }
    // Throws WireFailure when an answer to an earlier datagram comes.
    void expect_nothing() const { static_cast<void>(status()); }

    // One status request and a short wait; for a server that is just starting.
    [[nodiscard]] bool answers(
        std::chrono::milliseconds within = std::chrono::milliseconds(50)) const {
        send(udp_status(next_challenge()));
        if (!socket_.readable(within)) return false;
        std::array<std::uint8_t, 64> room{};
        return ::recv(socket_.descriptor(), room.data(), room.size(), 0) > 0;
    }

    [[nodiscard]] Address address() const { return address_; }
    [[nodiscard]] std::uint16_t port() const { return socket_.port(); }
    [[nodiscard]] bool silent() const { return !socket_.readable(std::chrono::milliseconds(0)); }

private:
    // No two status requests of a test carry the same challenge, so that no answer is taken for
    // another.
    static std::uint32_t next_challenge() {
        static std::atomic<std::uint32_t> next{0xC0DE0000};
        return next++;
    }
    static bool is_status(const Bytes& datagram, std::uint32_t challenge) {
        return datagram.size() == 14 && datagram.first(6) == hex("E3 97").u32(challenge);
    }

    Address address_;
    Socket socket_ = Socket::open(SOCK_DGRAM);
};

}  // namespace vorrim::wire
