#include "Datagrams.h"

#include <algorithm>

#include "Failure.h"
#include "Text.h"
#include "base/Random.h"
#include "base/file/primitives.h"
#include "base/kx_err.h"
#include "meta/Packet.h"
#include "net/kx_ip_address.h"

namespace vorrim::cli {

namespace {

constexpr std::size_t kLargestDatagram = 65'536;
constexpr int kTries = 3;
// After the end mark, datagrams that overtook one another still get this long.
constexpr std::chrono::milliseconds kStragglers{50};

}  // namespace

Datagrams::Datagrams(kx_net_protocol& net, const Server& server, std::chrono::milliseconds timeout)
    : server_(server.datagram_door()),
      timeout_(timeout),
      socket_(connect_to(net, server_, SocketType::datagram, timeout)),
      buffer_(kLargestDatagram) {}

ServerStatus Datagrams::status() {
    for (int attempt = 0; attempt < kTries; ++attempt) {
        const auto sent_at = Clock::now();
        const std::uint32_t challenge = send_status_request();
        while (const auto datagram = receive(sent_at + timeout_ / kTries)) {
            try {
                kx_memory_file data = kx_memory_file::reading(*datagram);
                if (read_8(data) != to_byte(Opcode::OP_UDP_STATUS)) continue;
                if (read_32(data) != challenge) continue;
                const std::uint32_t users = read_32(data);
                const std::uint32_t files = read_32(data);
                return {users, files, Clock::now() - sent_at};
            } catch (const kx_err&) {
                // Too short to be an answer.
            }
        }
    }
    throw Failure("no answer from " + printable(server_.text()) + " (UDP) " + within(timeout_));
}

Datagrams::Answers Datagrams::ask(const kx_memory_file& question, Opcode answer) {
    Answers answers{{}, false, {}};
    for (int attempt = 0; attempt < kTries && answers.datagrams.empty(); ++attempt) {
        const auto sent_at = Clock::now();
        send(question);
        const std::uint32_t challenge = send_status_request();
        auto deadline = sent_at + timeout_ / kTries;
        while (const auto datagram = receive(deadline)) {
            kx_memory_file data = kx_memory_file::reading(*datagram);
            try {
                const std::uint8_t opcode = read_8(data);
                if (opcode == to_byte(answer)) {
                    answers.datagrams.emplace_back(datagram->begin(), datagram->end());
                    answers.elapsed = Clock::now() - sent_at;
                } else if (opcode == to_byte(Opcode::OP_UDP_STATUS) && read_32(data) == challenge) {
                    answers.complete = true;
                    answers.elapsed = Clock::now() - sent_at;
                    deadline = std::min(deadline, Clock::now() + kStragglers);
                }
            } catch (const kx_err&) {
                // Too short to be an answer.
            }
        }
        if (answers.complete) return answers;
    }
    if (answers.datagrams.empty()) {
        throw Failure("no answer from " + printable(server_.text()) + " (UDP) " + within(timeout_));
    }
    return answers;
}

std::uint32_t Datagrams::own_address() const {
    const auto address = socket_->local_address();
    return address ? address->value() : 0;
}

void Datagrams::send(const kx_memory_file& question) {
    const std::span<const std::byte> bytes = question.contents();
    // The refusal of an earlier datagram may surface here; the next receive would say the same.
    if (socket_->write(bytes.data(), static_cast<std::uint32_t>(bytes.size())) < 0) {
        throw Failure("cannot reach " + printable(server_.text()) +
                      " (UDP): nothing listens there");
    }
}

std::uint32_t Datagrams::send_status_request() {
    const auto challenge = static_cast<std::uint32_t>(Random::from_system().next_u64());
    kx_memory_file request(16);
    write_8(request, kDatagramMarker);
    write_8(request, to_byte(Opcode::OP_UDP_STATUS_REQUEST));
    write_32(request, challenge);
    send(request);
    return challenge;
}

std::optional<std::span<const std::byte>> Datagrams::receive(Clock::time_point deadline) {
    for (;;) {
        const std::int32_t got =
            socket_->read(buffer_.data(), static_cast<std::uint32_t>(buffer_.size()));
        if (got < 0) {
            throw Failure("cannot reach " + printable(server_.text()) +
                          " (UDP): nothing listens there");
        }
        if (got > 0 && std::to_integer<std::uint8_t>(buffer_[0]) == kDatagramMarker) {
            return std::span(buffer_).subspan(1, static_cast<std::size_t>(got) - 1);
        }
        if (got > 0) continue;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) return std::nullopt;
        if (socket_->wait_ready(kReadable, static_cast<int>(left.count())) == 0)
            return std::nullopt;
    }
}

}  // namespace vorrim::cli
