#include "tests/wire/harness/Datagram.h"

#include <array>
#include <atomic>
#include <gtest/gtest.h>

#include "tests/wire/harness/Reader.h"

namespace vorrim::wire {

namespace {

// No two status requests of a test carry the same challenge, so that no answer is taken for
// another.
std::uint32_t next_challenge() {
    static std::atomic<std::uint32_t> next{0xC0DE0000};
    return next++;
}

bool is_status(const Bytes& datagram, std::uint32_t challenge) {
    return datagram.size() == 14 && datagram.first(6) == hex("E3 97").u32(challenge);
}

Record read_result(const Bytes& datagram) {
    Reader reader(datagram, 0xE3);
    reader.expect_u8(0x99, "the opcode");
    Record record = reader.record();
    reader.expect_end();
    return record;
}

}  // namespace

Datagram::Datagram(const ServerProcess& server, Address from) : Datagram(from) {
    socket_.connect(kLocalhost, server.ports().udp());
}

Datagram::Datagram(Address from) : address_(from), socket_(Socket::open(SOCK_DGRAM)) {
    // Room for the results of the largest search; the forced form is granted to root only.
    constexpr int kRoom = 4 << 20;
    if (::setsockopt(socket_.descriptor(), SOL_SOCKET, SO_RCVBUFFORCE, &kRoom, sizeof kRoom) != 0)
        ::setsockopt(socket_.descriptor(), SOL_SOCKET, SO_RCVBUF, &kRoom, sizeof kRoom);
    socket_.bind(from, 0);
}

void Datagram::send(const Bytes& datagram) const {
    // A refusal is the answer to an earlier datagram to a closed port; the next wait will tell.
    const auto sent = ::send(socket_.descriptor(), datagram.data(), datagram.size(), 0);
    if (sent >= 0 && static_cast<std::size_t>(sent) != datagram.size())
        throw WireFailure("a datagram went out short");
}

void Datagram::send_to(const ServerProcess& server, const Bytes& datagram) const {
    const sockaddr_in door = endpoint(kLocalhost, server.ports().udp());
    ::sendto(socket_.descriptor(), datagram.data(), datagram.size(), 0,
             reinterpret_cast<const sockaddr*>(&door), sizeof door);
}

Bytes Datagram::receive() const {
    if (!socket_.readable()) throw WireFailure("no datagram came");
    std::array<std::uint8_t, 65536> room{};
    const auto count = ::recv(socket_.descriptor(), room.data(), room.size(), 0);
    if (count < 0) throw WireFailure("the datagram port is closed");
    return Bytes(std::span(room).first(static_cast<std::size_t>(count)));
}

Bytes Datagram::ask(const Bytes& datagram) const {
    send(datagram);
    return receive();
}

Status Datagram::status() const {
    const std::uint32_t challenge = next_challenge();
    const Bytes answer = ask(udp_status(challenge));
    if (!is_status(answer, challenge))
        throw WireFailure("something else than the status came: " +
                          ::testing::PrintToString(answer));
    Reader reader(answer.from(6));
    return Status{reader.u32(), reader.u32()};
}

std::vector<Bytes> Datagram::all_answers(const Bytes& request) const {
    const std::uint32_t challenge = next_challenge();
    send(request);
    send(udp_status(challenge));
    std::vector<Bytes> answers;
    for (Bytes answer = receive(); !is_status(answer, challenge); answer = receive())
        answers.push_back(std::move(answer));
    return answers;
}

std::vector<Record> Datagram::results(const Bytes& request) const {
    std::vector<Record> records;
    for (const Bytes& answer : all_answers(request))
        records.push_back(read_result(answer));
    return records;
}

void Datagram::expect_nothing() const {
    static_cast<void>(status());
}

bool Datagram::answers(std::chrono::milliseconds within) const {
    const std::uint32_t challenge = next_challenge();
    send(udp_status(challenge));
    if (!socket_.readable(within)) return false;
    std::array<std::uint8_t, 64> room{};
    return ::recv(socket_.descriptor(), room.data(), room.size(), 0) > 0;
}

}  // namespace vorrim::wire
