#pragma once
// Questions to a server by datagram: no login, no promise of an answer.
//
// Threads: one. Errors: raises Failure when the server is known to be out of reach; silence is a
// result like any other.

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "Server.h"
#include "base/file/kx_memory_file.h"
#include "meta/Opcodes.h"
#include "net/kx_net.h"

namespace vorrim::cli {

struct ServerStatus {
    std::uint32_t users;
    std::uint32_t files;
    std::chrono::nanoseconds round_trip;
};

class Datagrams {
public:
    Datagrams(kx_net_protocol& net, const Server& server, std::chrono::milliseconds timeout);

    // Asks a few times within the timeout; raises Failure when nothing answers.
    [[nodiscard]] ServerStatus status();

    // Sends a question and collects the datagrams that answer it, each without its marker and
    // beginning with its opcode. A status request sent behind the question marks the end: datagrams
    // are handled in order. A question that gets neither is asked again; raises Failure in the end.
    struct Answers {
        std::vector<std::vector<std::byte>> datagrams;
        bool complete;  // the end was seen; otherwise something may have been lost
        std::chrono::nanoseconds elapsed{};  // from the question to the last of them, or to the end
    };
    [[nodiscard]] Answers ask(const kx_memory_file& question, Opcode answer);

    // The address from which datagrams leave: ours, as the server sees it unless it is translated.
    [[nodiscard]] std::uint32_t own_address() const;

private:
    using Clock = std::chrono::steady_clock;

    void send(const kx_memory_file& question);
    std::uint32_t send_status_request();
    // The next datagram that has the marker, without it; none when the time is over.
    std::optional<std::span<const std::byte>> receive(Clock::time_point deadline);

    Server server_;
    std::chrono::milliseconds timeout_;
    std::unique_ptr<kx_net_socket> socket_;
    std::vector<std::byte> buffer_;
};

}  // namespace vorrim::cli
