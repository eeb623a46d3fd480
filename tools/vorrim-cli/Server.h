#pragma once
// Which server, and the first steps towards it.

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "meta/Opcodes.h"
#include "net/kx_net.h"

namespace vorrim::cli {

struct Server {
    std::string host;
    std::uint16_t port;

    [[nodiscard]] std::string text() const { return host + ':' + std::to_string(port); }
    // The door for datagrams lies beside the one for connections.
    [[nodiscard]] Server datagram_door() const {
        return {host, static_cast<std::uint16_t>(port + kDatagramPortOffset)};
    }
};

// A socket that is connected to the server and does not block; raises Failure with the reason when
// there is none within the time. A connection that goes through a proxy is given the proxy's time
// instead, which is longer; datagrams never do.
[[nodiscard]] std::unique_ptr<kx_net_socket> connect_to(kx_net_protocol& net, const Server& server,
                                                        SocketType type,
                                                        std::chrono::milliseconds timeout);

// The line for a time that has run out.
[[nodiscard]] std::string within(std::chrono::milliseconds timeout);

}  // namespace vorrim::cli
