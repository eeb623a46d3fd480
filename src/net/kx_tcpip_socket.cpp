#include "net/kx_tcpip_socket.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

#include "net/kx_socket_set.h"

namespace vorrim {

namespace {

constexpr std::size_t kBatch = 64;  // datagrams moved by one system call

std::int32_t transferred(ssize_t result) noexcept {
    if (result > 0) return static_cast<std::int32_t>(result);
    if (result < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) return 0;
    return -1;
}

const sockaddr* raw(const kx_ip_address& address) noexcept {
    return reinterpret_cast<const sockaddr*>(&address.endpoint());
}

sockaddr* raw(kx_ip_address& address) noexcept {
    return reinterpret_cast<sockaddr*>(&address.endpoint());
}

}  // namespace

kx_tcpip_socket::kx_tcpip_socket(SocketType type)
    : handle_(::socket(AF_INET,
                       (type == SocketType::stream ? SOCK_STREAM : SOCK_DGRAM) | SOCK_CLOEXEC, 0)),
      type_(type),
      creation_failed_(handle_ < 0) {}

kx_tcpip_socket::kx_tcpip_socket(int handle, SocketType type) noexcept
    : handle_(handle), type_(type) {}

kx_tcpip_socket::~kx_tcpip_socket() {
    kx_tcpip_socket::close();
}

std::int32_t kx_tcpip_socket::read(void* buffer, std::uint32_t count) {
    return transferred(::recv(handle_, buffer, count, 0));
}

std::int32_t kx_tcpip_socket::write(const void* bytes, std::uint32_t count) {
    return transferred(::send(handle_, bytes, count, MSG_NOSIGNAL));
}

std::int32_t kx_tcpip_socket::write_gathered(std::span<const iovec> pieces) {
    if (pieces.size() == 1) {
        return transferred(::send(handle_, pieces[0].iov_base, pieces[0].iov_len, MSG_NOSIGNAL));
    }
    msghdr message{};
    message.msg_iov = const_cast<iovec*>(pieces.data());
    message.msg_iovlen = pieces.size();
    return transferred(::sendmsg(handle_, &message, MSG_NOSIGNAL));
}

AcceptResult kx_tcpip_socket::accept(std::unique_ptr<kx_net_socket>& accepted) {
    kx_ip_address peer;
    socklen_t length = sizeof(sockaddr_in);
    const int handle = ::accept4(handle_, raw(peer), &length, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (handle >= 0) {
        auto socket = std::make_unique<kx_tcpip_socket>(handle, type_);
        socket->accepted_address_ = peer.endpoint().sin_addr.s_addr;
        socket->accepted_port_ = peer.endpoint().sin_port;
        accepted = std::move(socket);
        return AcceptResult::accepted;
    }
    switch (errno) {
        case EAGAIN:
            return AcceptResult::drained;
        case EINTR:
        case ECONNABORTED:
        case EPROTO:
            return AcceptResult::retry;
        case EMFILE:
        case ENFILE:
        case ENOBUFS:
        case ENOMEM:
            return AcceptResult::exhausted;
        default:
            return AcceptResult::failed;
    }
}

std::int32_t kx_tcpip_socket::recv_from(void* buffer, std::uint32_t count, kx_ip_address& sender) {
    socklen_t length = sizeof(sockaddr_in);
    const ssize_t got = ::recvfrom(handle_, buffer, count, 0, raw(sender), &length);
    return got < 0 ? -1 : static_cast<std::int32_t>(got);
}

std::int32_t kx_tcpip_socket::send_to(const void* bytes, std::uint32_t count,
                                      const kx_ip_address& to) {
    const ssize_t sent =
        ::sendto(handle_, bytes, count, MSG_NOSIGNAL, raw(to), sizeof(sockaddr_in));
    return sent < 0 ? -1 : static_cast<std::int32_t>(sent);
}

std::size_t kx_tcpip_socket::receive_batch(std::span<DatagramSlot> slots) {
    std::array<mmsghdr, kBatch> messages{};
    std::array<iovec, kBatch> pieces{};
    const std::size_t count = std::min(slots.size(), kBatch);
    for (std::size_t i = 0; i < count; ++i) {
        pieces[i] = {slots[i].bytes.data(), slots[i].bytes.size()};
        messages[i].msg_hdr.msg_iov = &pieces[i];
        messages[i].msg_hdr.msg_iovlen = 1;
        messages[i].msg_hdr.msg_name = raw(slots[i].peer);
        messages[i].msg_hdr.msg_namelen = sizeof(sockaddr_in);
    }
    // A pending error of an earlier reply (port unreachable) is reported once and means nothing.
    int got = -1;
    do {
        got = ::recvmmsg(handle_, messages.data(), static_cast<unsigned>(count), MSG_DONTWAIT,
                         nullptr);
    } while (got < 0 && (errno == ECONNREFUSED || errno == EINTR));
    for (std::size_t i = 0; i < static_cast<std::size_t>(std::max(got, 0)); ++i) {
        slots[i].bytes = slots[i].bytes.first(messages[i].msg_len);
    }
    return static_cast<std::size_t>(std::max(got, 0));
}

void kx_tcpip_socket::send_batch(std::span<const DatagramSlot> slots) {
    std::array<mmsghdr, kBatch> messages{};
    std::array<iovec, kBatch> pieces{};
    while (!slots.empty()) {
        const std::size_t count = std::min(slots.size(), kBatch);
        for (std::size_t i = 0; i < count; ++i) {
            pieces[i] = {slots[i].bytes.data(), slots[i].bytes.size()};
            messages[i].msg_hdr.msg_iov = &pieces[i];
            messages[i].msg_hdr.msg_iovlen = 1;
            messages[i].msg_hdr.msg_name = const_cast<sockaddr*>(raw(slots[i].peer));
            messages[i].msg_hdr.msg_namelen = sizeof(sockaddr_in);
        }
        const int sent = ::sendmmsg(handle_, messages.data(), static_cast<unsigned>(count),
                                    MSG_DONTWAIT | MSG_NOSIGNAL);
        // An error belongs to the first datagram left: that one is lost, the others go on.
        slots = slots.subspan(sent > 0 ? static_cast<std::size_t>(sent) : 1);
    }
}

std::uint32_t kx_tcpip_socket::wait_ready(std::uint32_t flags, int timeout_ms,
                                          const WaitProgress& progress) {
    using std::chrono::steady_clock;
    constexpr int kProgressStep = 100;  // milliseconds between two reports

    pollfd watched{};
    watched.fd = handle_;
    if ((flags & kReadable) != 0) watched.events |= POLLIN;
    if ((flags & kWritable) != 0) watched.events |= POLLOUT;
    const auto ready_flags = [&]() -> std::uint32_t {
        std::uint32_t ready = 0;
        if ((watched.revents & (POLLIN | POLLHUP)) != 0) ready |= kReadable;
        if ((watched.revents & POLLOUT) != 0) ready |= kWritable;
        if ((watched.revents & (POLLERR | POLLNVAL)) != 0) ready |= kException | kReadable;
        return ready & flags;
    };

    if (!progress) {
        ::poll(&watched, 1, timeout_ms < 0 ? -1 : timeout_ms);
        return ready_flags();
    }
    const auto start = steady_clock::now();
    int left = timeout_ms;
    for (;;) {
        const bool limited = timeout_ms >= 0;
        if (::poll(&watched, 1, limited ? std::min(left, kProgressStep) : kProgressStep) > 0) {
            return 1;
        }
        const auto passed =
            std::chrono::duration_cast<std::chrono::milliseconds>(steady_clock::now() - start);
        const auto elapsed = static_cast<int>(std::min<std::int64_t>(passed.count(), timeout_ms));
        left = timeout_ms - elapsed;
        // Without a limit no share of it ever passes.
        const float share =
            limited ? static_cast<float>(elapsed + 1) / static_cast<float>(timeout_ms + 1) : 0.0F;
        if (!progress(share) || (limited && left == 0)) return 0;
    }
}

bool kx_tcpip_socket::close() {
    if (handle_ < 0) return false;
    ::close(handle_);
    handle_ = -1;
    return true;
}

void kx_tcpip_socket::set_blocking(bool blocking) {
    const int flags = ::fcntl(handle_, F_GETFL, 0);
    if (flags >= 0) {
        ::fcntl(handle_, F_SETFL, blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK);
    }
}

bool kx_tcpip_socket::connected() const {
    int error = 0;
    socklen_t length = sizeof error;
    if (::getsockopt(handle_, SOL_SOCKET, SO_ERROR, &error, &length) != 0) return false;
    // Whoever refuses gives other errors than who accepts and drops the connection at once.
    if (error == ECONNRESET || error == EPIPE) return true;
    return error == 0 && peer_address().has_value();
}

std::optional<kx_ip_address> kx_tcpip_socket::local_address() const {
    kx_ip_address address;
    socklen_t length = sizeof(sockaddr_in);
    if (::getsockname(handle_, raw(address), &length) != 0) return std::nullopt;
    return address;
}

std::optional<kx_ip_address> kx_tcpip_socket::peer_address() const {
    kx_ip_address address;
    if (accepted_port_ != 0) {
        address.endpoint().sin_family = AF_INET;
        address.endpoint().sin_addr.s_addr = accepted_address_;
        address.endpoint().sin_port = accepted_port_;
        return address;
    }
    socklen_t length = sizeof(sockaddr_in);
    if (::getpeername(handle_, raw(address), &length) != 0) return std::nullopt;
    return address;
}

int kx_tcpip_socket::release_handle() noexcept {
    return std::exchange(handle_, -1);
}

}  // namespace vorrim
