#pragma once
// A TCP conversation with a server.
//
//     send ──► [packet] ──► server        requests are answered in order
//     wait ◄── [packet] ◄── server        the answer asked for; everything else becomes an event
//
// A server may say something at any time: a text for people, its user and file counts, a call-back.
// Those go to the events, whatever is being waited for.
//
// Threads: one. Errors: every operation raises Failure with a line that says what happened.

#include <chrono>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>

#include "Server.h"
#include "base/file/kx_memory_file.h"
#include "meta/ClientId.h"
#include "meta/FileHash.h"
#include "meta/Opcodes.h"
#include "meta/Packet.h"
#include "net/kx_net.h"

namespace vorrim::cli {

// What a server says unasked.
struct SessionEvents {
    std::function<void(const std::string& text)> text = [](const std::string&) {};
    std::function<void(std::uint32_t users, std::uint32_t files)> status = [](auto, auto) {};
    std::function<void(ClientId asker, std::uint16_t port)> callback = [](auto, auto) {};
};

// One received message. The stream stands behind the opcode and is valid as long as this lives.
struct Message {
    Opcode opcode;
    std::unique_ptr<Packet> packet;
    kx_memory_file data;
};

class Session {
public:
    // Waits for the connection for at most `timeout`, and later as long for every answer.
    Session(kx_net_protocol& net, const Server& server, std::chrono::milliseconds timeout,
            SessionEvents events);

    // Introduces this client under a hash of its own. `port` is where it accepts connections, 0 for
    // nowhere. The server tests that port first, which may take it eight seconds.
    ClientId login(const std::string& name, std::uint16_t port);
    // Replaces what happens when another client wants to be called.
    void on_callback(std::function<void(ClientId asker, std::uint16_t port)> callback) {
        events_.callback = std::move(callback);
    }
    [[nodiscard]] ClientId id() const noexcept { return id_; }
    [[nodiscard]] const FileHash& own_hash() const noexcept { return own_hash_; }

    void send(Packet packet);
    // A request that consists of its opcode alone.
    void send(Opcode opcode);
    // The next message with one of these opcodes.
    [[nodiscard]] Message wait(std::initializer_list<Opcode> wanted);

    // Asks something that is always answered. When an earlier request may stay unanswered, waiting
    // for its answer or for this one's tells which.
    static constexpr Opcode kFenceAnswer = Opcode::OP_USER_FOUND;
    void send_fence();

    // Handles what has arrived, without waiting.
    void handle_arrived();
    // Readable when something has arrived.
    [[nodiscard]] int handle() const noexcept { return socket_->handle(); }

private:
    using Clock = std::chrono::steady_clock;

    std::unique_ptr<Packet> receive(Clock::time_point deadline);
    // True when the packet was an event and has been handled.
    bool handle_event(const Packet& packet);
    [[noreturn]] void fail_closed() const;
    Message wait_until(std::initializer_list<Opcode> wanted, Clock::time_point deadline);

    std::chrono::milliseconds timeout_;
    SessionEvents events_;
    std::unique_ptr<kx_net_socket> socket_;
    std::unique_ptr<Packet> incoming_ = std::make_unique<Packet>();
    FileHash own_hash_{};
    ClientId id_{};
    std::string last_text_;
};

}  // namespace vorrim::cli
