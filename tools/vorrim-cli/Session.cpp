#include "Session.h"

#include <algorithm>
#include <array>
#include <span>
#include <sys/uio.h>
#include <utility>

#include "Failure.h"
#include "Text.h"
#include "base/Random.h"
#include "base/file/primitives.h"
#include "base/kx_err.h"
#include "meta/Meta.h"
#include "meta/TagNames.h"

namespace vorrim::cli {

namespace {

constexpr std::uint32_t kClientVersion = 60;
// How long a server may test our port before it answers a login.
constexpr std::chrono::seconds kReachabilityTest{8};

FileHash random_hash() {
    Random random = Random::from_system();
    FileHash hash{};
    for (std::byte& byte : hash.bytes)
        byte = static_cast<std::byte>(random.below(256));
    return hash;
}

}  // namespace

Session::Session(kx_net_protocol& net, const Server& server, std::chrono::milliseconds timeout,
                 SessionEvents events)
    : timeout_(timeout),
      events_(std::move(events)),
      socket_(connect_to(net, server, SocketType::stream, timeout)),
      own_hash_(random_hash()) {}

ClientId Session::login(const std::string& name, std::uint16_t port) {
    Meta record;
    record.setHash(own_hash_);
    record.setPort(port);
    record.setName(name);
    record.setTagById(TagId::Version, kClientVersion);
    record.setTagById(TagId::Port, std::uint32_t{port});
    Packet packet(record.size() + 1);
    write_8(packet.body(), to_byte(Opcode::OP_LOGIN));
    if (!record.toNetwork(packet.body())) throw Failure("this name is too long");
    packet.finish();
    send(std::move(packet));
    Message answer =
        wait_until({Opcode::OP_ID_ASSIGNED}, Clock::now() + timeout_ + kReachabilityTest);
    id_ = ClientId(read_32(answer.data));
    return id_;
}

void Session::send(Packet packet) {
    // Header and payload leave in one segment.
    const auto piece = [](std::span<const std::byte> bytes) {
        return iovec{const_cast<std::byte*>(bytes.data()), bytes.size()};
    };
    std::array<iovec, 2> pieces = {piece(packet.header()), piece(packet.payload())};
    auto deadline = Clock::now() + timeout_;
    for (;;) {
        const std::int32_t count = socket_->write_gathered(pieces);
        if (count < 0) {
            handle_arrived();  // its last words may be waiting
            fail_closed();
        }
        auto gone = static_cast<std::size_t>(count);
        for (iovec& rest : pieces) {
            const std::size_t taken = std::min(gone, rest.iov_len);
            rest.iov_base = static_cast<std::byte*>(rest.iov_base) + taken;
            rest.iov_len -= taken;
            gone -= taken;
        }
        if (pieces.back().iov_len == 0) return;
        // A server that takes something, however slowly, is given time for the rest.
        if (count > 0) deadline = Clock::now() + timeout_;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) throw Failure("the server takes no data " + within(timeout_));
        (void)socket_->wait_ready(kWritable | kException, static_cast<int>(left.count()));
    }
}

void Session::send(Opcode opcode) {
    Packet packet(1);
    write_8(packet.body(), to_byte(opcode));
    send(std::move(packet));
}

void Session::send_fence() {
    Packet packet(static_cast<std::uint32_t>(1 + own_hash_.bytes.size()));
    write_8(packet.body(), to_byte(Opcode::OP_FIND_USER));
    write_bytes(packet.body(), own_hash_.bytes);
    send(std::move(packet));
}

Message Session::wait(std::initializer_list<Opcode> wanted) {
    return wait_until(wanted, Clock::now() + timeout_);
}

Message Session::wait_until(std::initializer_list<Opcode> wanted, Clock::time_point deadline) {
    for (;;) {
        std::unique_ptr<Packet> packet = receive(deadline);
        if (!packet) throw Failure("no answer from the server " + within(timeout_));
        if (handle_event(*packet)) continue;
        kx_memory_file data = kx_memory_file::reading(packet->payload());
        const auto opcode = static_cast<Opcode>(read_8(data));
        if (std::find(wanted.begin(), wanted.end(), opcode) != wanted.end()) {
            // Once it answers, what it said at login explains no closing any more.
            if (opcode != Opcode::OP_ID_ASSIGNED) last_text_.clear();
            return {opcode, std::move(packet), std::move(data)};
        }
    }
}

void Session::handle_arrived() {
    while (const std::unique_ptr<Packet> packet = receive(Clock::now()))
        (void)handle_event(*packet);
}

// The next complete packet; null when the time is over.
std::unique_ptr<Packet> Session::receive(Clock::time_point deadline) {
    for (;;) {
        std::uint32_t count = 0;
        switch (incoming_->receive(*socket_, count)) {
            case Progress::done:
                return std::exchange(incoming_, std::make_unique<Packet>());
            case Progress::failed:
                fail_closed();
            case Progress::pending:
                break;
        }
        if (count > 0) continue;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) return nullptr;
        (void)socket_->wait_ready(kReadable | kException, static_cast<int>(left.count()));
    }
}

bool Session::handle_event(const Packet& packet) {
    kx_memory_file data = kx_memory_file::reading(packet.payload());
    try {
        switch (static_cast<Opcode>(read_8(data))) {
            case Opcode::OP_SERVER_MESSAGE:
                last_text_ = read_string(data).view();
                events_.text(last_text_);
                return true;
            case Opcode::OP_SERVER_STATUS: {
                const std::uint32_t users = read_32(data);
                events_.status(users, read_32(data));
                return true;
            }
            case Opcode::OP_CALLBACK: {
                const ClientId asker(read_32(data));
                events_.callback(asker, read_16(data));
                return true;
            }
            default:
                return false;
        }
    } catch (const kx_err&) {
        throw Failure("the server sent a message that cannot be read");
    }
}

void Session::fail_closed() const {
    std::string line = "the server closed the connection";
    // A server that refuses a client says why and then closes.
    if (!last_text_.empty()) line += " (its last words: " + printable(last_text_) + ")";
    throw Closed(std::move(line));
}

}  // namespace vorrim::cli
