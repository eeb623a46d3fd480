#pragma once
// The network's door: everything that reaches the network gets its sockets here.
//
// One protocol object lives from start-up to shut-down. It is an interface so that a test can put
// a network of its own in its place, with many servers in one process.
//
// With a proxy configured, a stream connect that blocks goes through it:
//
//     connect, blocking stream  ──►  proxy  ──►  the address, which may be only a name
//     any other connect         ───────────────►  the address
//     listen                    on this host
//
// Errors: nothing raises. Factories return null on any failure; callers decide what to print.
// Threads: any thread, any time. Connects through a proxy are made one at a time.

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Annotations.h"
#include "base/kx_critical_section.h"
#include "base/proxy/kx_proxy_settings.h"
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
    // Where a proxy looks names up for us, any text becomes a kx_named_address.
    [[nodiscard]] virtual std::unique_ptr<kx_net_address> resolve(std::string_view host) = 0;

    // A new socket, connected, or connecting when `mode` does not block: its end then shows as
    // writability, and kx_net_socket::connected tells how it ended. A name that no proxy looks up
    // is looked up first. A socket that was connected blocking also blocks later.
    [[nodiscard]] virtual std::unique_ptr<kx_net_socket> connect(const kx_net_address& to,
                                                                 SocketType type,
                                                                 ConnectMode mode) = 0;

    [[nodiscard]] virtual kx_host_info local_host_info() = 0;

    // The proxy that blocking connects go through, as "host:port"; empty when there is none.
    [[nodiscard]] virtual std::string proxy_name() const { return {}; }

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

class kx_tcpip_socket;

class kx_tcpip_protocol final : public kx_net_protocol {
public:
    // How long to wait for the connection to a proxy, and then for the proxy to connect onward
    // (ms).
    static constexpr int kProxyTimeout = 15'000;

    explicit kx_tcpip_protocol(kx_proxy_settings proxy = {});

    [[nodiscard]] const char* name() const noexcept override { return "TCP/IP"; }
    [[nodiscard]] std::unique_ptr<kx_socket_set> create_socket_set() override;
    [[nodiscard]] std::unique_ptr<kx_net_address> resolve(std::string_view host) override;
    [[nodiscard]] std::unique_ptr<kx_net_socket> connect(const kx_net_address& to, SocketType type,
                                                         ConnectMode mode) override;
    [[nodiscard]] kx_host_info local_host_info() override;
    [[nodiscard]] std::string proxy_name() const override { return proxy_name_; }
    // Never through a proxy.
    [[nodiscard]] std::unique_ptr<kx_net_socket> listen_at(const kx_ip_address& local,
                                                           int proxy_wait_ms,
                                                           SocketType type) override;

private:
    [[nodiscard]] std::unique_ptr<kx_net_socket> connect_through_proxy(const kx_net_address& to)
        EXCLUDES(lock_);
    [[nodiscard]] std::unique_ptr<kx_tcpip_socket> connect_to_proxy() REQUIRES(lock_);

    const kx_proxy_type proxy_type_;
    const std::string proxy_name_;
    kx_critical_section lock_;  // held for the whole of a connect through the proxy
    kx_proxy_settings proxy_ GUARDED_BY(lock_);
};

// The network of this host. Without settings the proxy is the one of the user's registry, read now.
[[nodiscard]] std::unique_ptr<kx_net_protocol> kx_create_tcpip_protocol(
    std::optional<kx_proxy_settings> proxy = std::nullopt);

}  // namespace vorrim
