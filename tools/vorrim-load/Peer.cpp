#include "Peer.h"

#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace vorrim::load {

Peer::~Peer() {
    if (handle_ >= 0) ::close(handle_);
}

Peer::Peer(Peer&& other) noexcept {
    *this = std::move(other);
}

Peer& Peer::operator=(Peer&& other) noexcept {
    std::swap(handle_, other.handle_);
    std::swap(out_, other.out_);
    std::swap(out_sent_, other.out_sent_);
    std::swap(in_, other.in_);
    std::swap(asked, other.asked);
    std::swap(step, other.step);
    return *this;
}

bool Peer::connect(const Target& target, std::uint32_t source) {
    handle_ = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (handle_ < 0) return false;
    const int on = 1;
    ::setsockopt(handle_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    sockaddr_in near{};
    near.sin_family = AF_INET;
    near.sin_addr.s_addr = source;
    if (source != 0) {
        ::setsockopt(handle_, IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, &on, sizeof on);
        if (::bind(handle_, reinterpret_cast<const sockaddr*>(&near), sizeof near) != 0) {
            return false;
        }
    }
    sockaddr_in far{};
    far.sin_family = AF_INET;
    far.sin_addr.s_addr = target.address;
    far.sin_port = htons(target.port);
    return ::connect(handle_, reinterpret_cast<const sockaddr*>(&far), sizeof far) == 0 ||
           errno == EINPROGRESS;
}

void Peer::abort() {
    if (handle_ < 0) return;
    const linger reset{1, 0};
    ::setsockopt(handle_, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    close();
}

void Peer::close() {
    if (handle_ < 0) return;
    ::close(std::exchange(handle_, -1));
    out_.clear();
    out_sent_ = 0;
    in_.clear();
    asked.clear();
    step = 0;
}

void Peer::queue(std::span<const std::byte> bytes) {
    out_.insert(out_.end(), bytes.begin(), bytes.end());
}

bool Peer::flush() {
    while (out_sent_ < out_.size()) {
        const ssize_t sent =
            ::send(handle_, out_.data() + out_sent_, out_.size() - out_sent_, MSG_NOSIGNAL);
        if (sent < 0) return errno == EAGAIN || errno == EINTR || errno == ENOTCONN;
        out_sent_ += static_cast<std::size_t>(sent);
    }
    out_.clear();
    out_sent_ = 0;
    return true;
}

long Peer::take(std::span<std::byte> room) const {
    const ssize_t got = ::recv(handle_, room.data(), room.size(), 0);
    if (got > 0) return got;
    return got < 0 && (errno == EAGAIN || errno == EINTR) ? 0 : -1;
}

}  // namespace vorrim::load
