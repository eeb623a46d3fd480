#include "net/kx_net.h"

#include <arpa/inet.h>
#include <array>
#include <cstring>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

#include "net/kx_select_set.h"
#include "net/kx_tcpip_socket.h"

namespace vorrim {

namespace {

constexpr std::size_t kHostBuffer = 256;  // longer host texts are cut
// Datagrams arrive in bursts while a worker is busy elsewhere; the kernel cuts this to its own
// maximum.
constexpr int kDatagramReceiveBuffer = 4 * 1024 * 1024;

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

}  // namespace

std::unique_ptr<kx_socket_set> kx_tcpip_protocol::create_socket_set() {
    return std::make_unique<kx_select_set>();
}

std::unique_ptr<kx_net_address> kx_tcpip_protocol::resolve(std::string_view host) {
    const std::string text(host.substr(0, kHostBuffer - 1));
    sockaddr_in endpoint{};
    endpoint.sin_family = AF_INET;
    if (::inet_aton(text.c_str(), &endpoint.sin_addr) != 0 &&
        endpoint.sin_addr.s_addr != INADDR_NONE) {
        return std::make_unique<kx_ip_address>(endpoint);
    }
    std::unique_ptr<kx_net_address> first;
    look_up(text, 0, [&](const kx_ip_address& address, const char*) {
        if (!first) first = address.clone();
    });
    return first;
}

std::unique_ptr<kx_net_socket> kx_tcpip_protocol::connect(const kx_net_address& to, SocketType type,
                                                          ConnectMode mode) {
    const auto* address = dynamic_cast<const kx_ip_address*>(&to);
    if (address == nullptr) return nullptr;
    auto socket = std::make_unique<kx_tcpip_socket>(type);
    if (socket->creation_failed()) return nullptr;
    if (mode == ConnectMode::non_blocking) socket->set_blocking(false);
    const int result =
        ::connect(socket->handle(), reinterpret_cast<const sockaddr*>(&address->endpoint()),
                  sizeof(sockaddr_in));
    if (mode == ConnectMode::blocking && result != 0) return nullptr;
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
    // The kernel cuts the backlog to the system's maximum.
    if (type == SocketType::stream && ::listen(socket->handle(), 65'535) != 0) return nullptr;
    return socket;
}

}  // namespace vorrim
