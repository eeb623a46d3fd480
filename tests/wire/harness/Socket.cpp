#include "tests/wire/harness/Socket.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <thread>
#include <unistd.h>

#include "tests/wire/harness/Bytes.h"

namespace vorrim::wire {

namespace {

[[noreturn]] void fail(std::string_view what) {
    throw WireFailure(std::string(what) + ": " + std::strerror(errno));
}

}  // namespace

std::string Address::text() const {
    return std::to_string(value_ & 0xFF) + '.' + std::to_string(value_ >> 8U & 0xFF) + '.' +
           std::to_string(value_ >> 16U & 0xFF) + '.' + std::to_string(value_ >> 24U);
}

Address next_address() {
    static std::atomic<unsigned> next{0};
    constexpr unsigned kLastOctets = 254;  // 1 to 254
    const unsigned n = next++;
    return {127, 1 + n / (kLastOctets * 256) % 255, n / kLastOctets % 256, 1 + n % kLastOctets};
}

sockaddr_in endpoint(Address address, std::uint16_t port) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(port);
    name.sin_addr.s_addr = address.value();  // already the address's bytes in memory order
    return name;
}

bool connects(Address address, std::uint16_t port) {
    try {
        Socket::open(SOCK_STREAM).connect(address, port);
        return true;
    } catch (const WireFailure&) {
        return false;
    }
}

Socket Socket::open(int type) {
    Socket socket(::socket(AF_INET, type | SOCK_CLOEXEC, 0));
    if (socket.descriptor_ < 0) fail("socket");
    return socket;
}

bool Socket::try_bind(Address address, std::uint16_t port) const {
    const sockaddr_in name = endpoint(address, port);
    return ::bind(descriptor_, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0;
}

void Socket::bind(Address address, std::uint16_t port) const {
    if (!try_bind(address, port)) fail("bind");
}

void Socket::connect(Address address, std::uint16_t port) const {
    const sockaddr_in name = endpoint(address, port);
    if (::connect(descriptor_, reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0)
        fail("connect");
}

void Socket::listen(int backlog) const {
    if (::listen(descriptor_, backlog) != 0) fail("listen");
}

void Socket::set(int level, int option, int value) const {
    ::setsockopt(descriptor_, level, option, &value, sizeof value);
}

std::uint16_t Socket::port() const {
    sockaddr_in name{};
    socklen_t length = sizeof name;
    if (::getsockname(descriptor_, reinterpret_cast<sockaddr*>(&name), &length) != 0)
        fail("getsockname");
    return ntohs(name.sin_port);
}

bool Socket::readable(std::chrono::milliseconds within) const {
    pollfd wait{descriptor_, POLLIN, 0};
    return ::poll(&wait, 1, static_cast<int>(within.count())) > 0;
}

void Socket::close() {
    if (descriptor_ >= 0) ::close(std::exchange(descriptor_, -1));
}

void wait_until(std::string_view what, const std::function<bool()>& done,
                std::chrono::milliseconds within) {
    constexpr std::chrono::milliseconds kPause{5};
    const auto deadline = std::chrono::steady_clock::now() + within;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline)
            throw WireFailure("waited in vain: " + std::string(what));
        std::this_thread::sleep_for(kPause);
    }
}

}  // namespace vorrim::wire
