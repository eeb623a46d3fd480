#include "net/kx_net.h"

#include <arpa/inet.h>
#include <array>
#include <cstring>
#include <limits>
#include <netdb.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

#include "net/kx_named_address.h"
#include "net/kx_proxy_socket.h"
#include "net/kx_select_set.h"
#include "net/kx_tcpip_socket.h"

namespace vorrim {

namespace {

constexpr std::size_t kHostBuffer = 256;  // longer host texts are cut
// Datagrams arrive in bursts while a worker is busy elsewhere; the kernel cuts this to its own
// maximum.
constexpr int kDatagramReceiveBuffer = 4 * 1024 * 1024;

// Accepted sockets inherit the options of their listener. A peer that answers no probe for ten
// minutes is gone, though nobody has said so. Replies leave whole and at once; holding small ones
// back only adds latency.
void set_for_accepted(int listener) {
    constexpr int kOn = 1;
    constexpr int kIdle = 300;     // seconds before the first probe
    constexpr int kInterval = 60;  // seconds between two
    constexpr int kProbes = 5;
    ::setsockopt(listener, IPPROTO_TCP, TCP_NODELAY, &kOn, sizeof kOn);
    ::setsockopt(listener, SOL_SOCKET, SO_KEEPALIVE, &kOn, sizeof kOn);
    ::setsockopt(listener, IPPROTO_TCP, TCP_KEEPIDLE, &kIdle, sizeof kIdle);
    ::setsockopt(listener, IPPROTO_TCP, TCP_KEEPINTVL, &kInterval, sizeof kInterval);
    ::setsockopt(listener, IPPROTO_TCP, TCP_KEEPCNT, &kProbes, sizeof kProbes);
}

// Calls `take` with each IPv4 address that the name service has for `host`.
template <class Take>
bool look_up(const std::string& host, int flags, Take take) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags;
    addrinfo* found = nullptr;
    if (::getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0) return false;
    for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
        sockaddr_in endpoint{};
        std::memcpy(&endpoint, entry->ai_addr, sizeof endpoint);
        endpoint.sin_port = 0;
        take(kx_ip_address(endpoint), entry->ai_canonname);
    }
    ::freeaddrinfo(found);
    return true;
}

// The first address of a host; its port is 0.
std::optional<kx_ip_address> address_of(std::string_view host) {
    const std::string text(host.substr(0, kHostBuffer - 1));
    sockaddr_in endpoint{};
    endpoint.sin_family = AF_INET;
    if (::inet_aton(text.c_str(), &endpoint.sin_addr) != 0 &&
        endpoint.sin_addr.s_addr != INADDR_NONE) {
        return kx_ip_address(endpoint);
    }
    std::optional<kx_ip_address> first;
    look_up(text, 0, [&](const kx_ip_address& address, const char*) {
        if (!first) first = address;
    });
    return first;
}

// Where an address lies for who connects to it directly.
std::optional<kx_ip_address> address_of(const kx_net_address& address) {
    if (const auto* ip = dynamic_cast<const kx_ip_address*>(&address)) return *ip;
    const auto* named = dynamic_cast<const kx_named_address*>(&address);
    auto found = named != nullptr ? address_of(named->host()) : std::nullopt;
    if (found) found->set_port(named->get_port());
    return found;
}

std::unique_ptr<kx_tcpip_socket> connect_directly(const kx_ip_address& to, SocketType type,
                                                  ConnectMode mode) {
    auto socket = std::make_unique<kx_tcpip_socket>(type);
    if (socket->creation_failed()) return nullptr;
    if (mode == ConnectMode::non_blocking) socket->set_blocking(false);
    const int result = ::connect(
        socket->handle(), reinterpret_cast<const sockaddr*>(&to.endpoint()), sizeof(sockaddr_in));
    if (mode == ConnectMode::blocking && result != 0) return nullptr;
    return socket;
}

}  // namespace

std::unique_ptr<kx_net_protocol> kx_create_tcpip_protocol(std::optional<kx_proxy_settings> proxy) {
    if (!proxy) proxy = kx_read_proxy_settings();
    return std::make_unique<kx_tcpip_protocol>(std::move(*proxy));
}

kx_tcpip_protocol::kx_tcpip_protocol(kx_proxy_settings proxy)
    : proxy_type_(proxy.type),
      proxy_name_(proxy.type == kx_proxy_type::none
                      ? std::string()
                      : proxy.host + ':' + std::to_string(proxy.port)),
      proxy_(std::move(proxy)) {}

std::unique_ptr<kx_socket_set> kx_tcpip_protocol::create_socket_set() {
    return std::make_unique<kx_select_set>();
}

std::unique_ptr<kx_net_address> kx_tcpip_protocol::resolve(std::string_view host) {
    if (proxy_type_ == kx_proxy_type::socks5 || proxy_type_ == kx_proxy_type::https) {
        return std::make_unique<kx_named_address>(host);
    }
    const std::optional<kx_ip_address> address = address_of(host);
    return address ? address->clone() : nullptr;
}

std::unique_ptr<kx_net_socket> kx_tcpip_protocol::connect(const kx_net_address& to, SocketType type,
                                                          ConnectMode mode) {
    const bool proxied = proxy_type_ != kx_proxy_type::none && type == SocketType::stream &&
                         mode == ConnectMode::blocking;
    if (proxied) return connect_through_proxy(to);
    const std::optional<kx_ip_address> address = address_of(to);
    return address ? connect_directly(*address, type, mode) : nullptr;
}

std::unique_ptr<kx_net_socket> kx_tcpip_protocol::connect_through_proxy(const kx_net_address& to) {
    const kx_guard hold(lock_);
    std::unique_ptr<kx_tcpip_socket> connected = connect_to_proxy();
    if (!connected) return nullptr;
    auto socket = std::make_unique<kx_proxy_socket>(std::move(connected), proxy_, to);
    return socket->wait_ready(kWritable, kProxyTimeout) != 0 ? std::move(socket) : nullptr;
}

std::unique_ptr<kx_tcpip_socket> kx_tcpip_protocol::connect_to_proxy() {
    if (!proxy_.address) {
        if (proxy_.port < 1 || proxy_.port > std::numeric_limits<std::uint16_t>::max()) {
            return nullptr;
        }
        std::optional<kx_ip_address> found = address_of(proxy_.host);
        if (!found) return nullptr;
        found->set_port(static_cast<std::uint16_t>(proxy_.port));
        proxy_.address = found->endpoint();
    }
    // The system alone would wait for minutes for a proxy that is not there.
    std::unique_ptr<kx_tcpip_socket> socket = connect_directly(
        kx_ip_address(*proxy_.address), SocketType::stream, ConnectMode::non_blocking);
    if (!socket || socket->wait_ready(kWritable | kException, kProxyTimeout) == 0 ||
        !socket->connected()) {
        return nullptr;
    }
    socket->set_blocking(true);
    return socket;
}

kx_host_info kx_tcpip_protocol::local_host_info() {
    kx_host_info info;
    std::array<char, kHostBuffer> name{};
    if (::gethostname(name.data(), name.size() - 1) != 0) return info;
    info.name = name.data();
    look_up(info.name, AI_CANONNAME, [&](const kx_ip_address& address, const char* canonical) {
        if (canonical != nullptr && info.name != canonical) {
            info.aliases.push_back(std::exchange(info.name, canonical));
        }
        info.addresses.push_back(address);
    });
    return info;
}

std::unique_ptr<kx_net_socket> kx_tcpip_protocol::listen_at(const kx_ip_address& local,
                                                            int /*proxy_wait_ms*/,
                                                            SocketType type) {
    auto socket = std::make_unique<kx_tcpip_socket>(type);
    if (socket->creation_failed()) return nullptr;
    socket->set_blocking(false);
    const int on = 1;
    if (type == SocketType::stream) {
        // For datagrams the option would let a second server steal the port.
        if (::setsockopt(socket->handle(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) {
            return nullptr;
        }
    } else {
        ::setsockopt(socket->handle(), SOL_SOCKET, SO_RCVBUF, &kDatagramReceiveBuffer,
                     sizeof kDatagramReceiveBuffer);
    }
    if (::bind(socket->handle(), reinterpret_cast<const sockaddr*>(&local.endpoint()),
               sizeof(sockaddr_in)) != 0) {
        return nullptr;
    }
    if (type == SocketType::stream) set_for_accepted(socket->handle());
    // The kernel cuts the backlog to the system's maximum.
    if (type == SocketType::stream && ::listen(socket->handle(), 65'535) != 0) return nullptr;
    return socket;
}

}  // namespace vorrim
