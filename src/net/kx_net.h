#pragma once
// The network's door: everything that reaches the network gets its sockets here.
//
// One protocol object lives from start-up to shut-down. It is an interface so that a test can put
// a network of its own in its place, with many servers in one process.
//
// Errors: nothing raises. Factories return null on any failure; callers decide what to print.
// Threads: any thread, any time.

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "net/kx_ip_address.h"
#include "net/kx_net_socket.h"
#include "net/kx_socket_set.h"

namespace vorrim {

// What the system says of this host.
struct kx_host_info {
    std::string name;
    std::vector<std::string> aliases;
    std::vector<kx_ip_address> addresses;  // port 0
};

enum class ConnectMode { blocking, non_blocking };

class kx_net_protocol {
public:
    virtual ~kx_net_protocol() = default;

    [[nodiscard]] virtual const char* name() const noexcept = 0;
    [[nodiscard]] virtual std::unique_ptr<kx_socket_set> create_socket_set() = 0;

    // A dotted address is taken as it stands; anything else (255.255.255.255 too) is looked up.
    [[nodiscard]] virtual std::unique_ptr<kx_net_address> resolve(std::string_view host) = 0;

    // A new socket, connected, or connecting when `mode` does not block: its end then shows as
    // writability, and kx_net_socket::connected tells how it ended.
    [[nodiscard]] virtual std::unique_ptr<kx_net_socket> connect(const kx_net_address& to,
                                                                 SocketType type,
                                                                 ConnectMode mode) = 0;

    [[nodiscard]] virtual kx_host_info local_host_info() = 0;

    // A new non-blocking socket bound to `local`, whose address 0 means all local addresses; a
    // stream socket listens. The proxy wait (ms) matters only where a proxy listens in our place.
    [[nodiscard]] virtual std::unique_ptr<kx_net_socket> listen_at(const kx_ip_address& local,
                                                                   int proxy_wait_ms,
                                                                   SocketType type) = 0;
    // The same on all local addresses.
    [[nodiscard]] std::unique_ptr<kx_net_socket> listen(std::uint16_t port, int proxy_wait_ms,
                                                        SocketType type) {
        return listen_at(kx_ip_address(0, port), proxy_wait_ms, type);
    }
};

class kx_tcpip_protocol final : public kx_net_protocol {
public:
    [[nodiscard]] const char* name() const noexcept override { return "TCP/IP"; }
    [[nodiscard]] std::unique_ptr<kx_socket_set> create_socket_set() override;
    [[nodiscard]] std::unique_ptr<kx_net_address> resolve(std::string_view host) override;
    [[nodiscard]] std::unique_ptr<kx_net_socket> connect(const kx_net_address& to, SocketType type,
                                                         ConnectMode mode) override;
    [[nodiscard]] kx_host_info local_host_info() override;
    [[nodiscard]] std::unique_ptr<kx_net_socket> listen_at(const kx_ip_address& local,
                                                           int proxy_wait_ms,
                                                           SocketType type) override;
};

}  // namespace vorrim
