#pragma once
// Descriptors that close themselves, addresses of the loopback network, and waits with a deadline.

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <netinet/in.h>
#include <poll.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "tests/wire/harness/Bytes.h"

namespace vorrim::wire {

// How long a test waits for what must happen before it gives up. Only failures take this long.
inline constexpr std::chrono::seconds kDeadline{20};

// An IPv4 address a.b.c.d. Every 127.b.c.d is this machine, so each client can have its own.
class Address final {
public:
    constexpr Address(unsigned a, unsigned b, unsigned c, unsigned d)
        : value_(a | b << 8U | c << 16U | d << 24U) {}

    // As identifiers carry it: the first octet in the lowest byte.
    [[nodiscard]] constexpr std::uint32_t value() const { return value_; }
    [[nodiscard]] std::string text() const {
        return std::to_string(value_ & 0xFF) + '.' + std::to_string(value_ >> 8U & 0xFF) + '.' +
               std::to_string(value_ >> 16U & 0xFF) + '.' + std::to_string(value_ >> 24U);
    }
    bool operator==(const Address&) const = default;

private:
    std::uint32_t value_;
};

inline constexpr Address kLocalhost{127, 0, 0, 1};
inline constexpr Address kAnyAddress{0, 0, 0, 0};

// Another address of the loopback network on every call. None ends in 0: read as an identifier,
// such an address would lie in the low range.
[[nodiscard]] inline Address next_address() {
    static std::atomic<unsigned> next{0};
    constexpr unsigned kLastOctets = 254;  // 1 to 254
    const unsigned n = next++;
    return {127, 1 + n / (kLastOctets * 256) % 255, n / kLastOctets % 256, 1 + n % kLastOctets};
}

[[nodiscard]] inline sockaddr_in endpoint(Address address, std::uint16_t port) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(port);
    name.sin_addr.s_addr = address.value();  // already the address's bytes in memory order
    return name;
}

class Socket final {
public:
    Socket() = default;
    explicit Socket(int descriptor) : descriptor_(descriptor) {}
    Socket(Socket&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    Socket& operator=(Socket other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    Socket(const Socket&) = delete;
    ~Socket() { close(); }

    // `type` is SOCK_STREAM or SOCK_DGRAM; both throw WireFailure when the system refuses.
    [[nodiscard]] static Socket open(int type) {
        Socket socket(::socket(AF_INET, type | SOCK_CLOEXEC, 0));
        if (socket.descriptor_ < 0) fail("socket");
        return socket;
    }
    void bind(Address address, std::uint16_t port) const {
        if (!try_bind(address, port)) fail("bind");
    }
    // False when the address and port are taken.
    [[nodiscard]] bool try_bind(Address address, std::uint16_t port) const {
        const sockaddr_in name = endpoint(address, port);
        return ::bind(descriptor_, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0;
    }
    void connect(Address address, std::uint16_t port) const {
        const sockaddr_in name = endpoint(address, port);
        if (::connect(descriptor_, reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0)
            fail("connect");
    }
    void listen(int backlog = SOMAXCONN) const {
        if (::listen(descriptor_, backlog) != 0) fail("listen");
    }
    // Of setsockopt; refusals are passed over.
    template <class Value>
    void set(int level, int option, const Value& value) const {
        static_assert(sizeof(Value) >= sizeof(int), "no option is shorter");
        ::setsockopt(descriptor_, level, option, &value, sizeof value);
    }
    // The local one.
    [[nodiscard]] std::uint16_t port() const {
        sockaddr_in name{};
        socklen_t length = sizeof name;
        if (::getsockname(descriptor_, reinterpret_cast<sockaddr*>(&name), &length) != 0)
            fail("getsockname");
        return ntohs(name.sin_port);
    }

    // Waits until something can be read (a close counts); false when the time is over.
    [[nodiscard]] bool readable(std::chrono::milliseconds within = kDeadline) const {
        pollfd wait{descriptor_, POLLIN, 0};
        return ::poll(&wait, 1, static_cast<int>(within.count())) > 0;
    }

    void close() {
        if (descriptor_ >= 0) ::close(std::exchange(descriptor_, -1));
    }
    [[nodiscard]] int descriptor() const { return descriptor_; }

private:
    [[noreturn]] static void fail(const std::string& what) {
        throw WireFailure(what + ": " + std::strerror(errno));
    }

    int descriptor_ = -1;
};

// Whether somebody accepts connections there.
[[nodiscard]] inline bool connects(Address address, std::uint16_t port) {
    try {
        Socket::open(SOCK_STREAM).connect(address, port);
        return true;
    } catch (const WireFailure&) {
        return false;
    }
}

// Asks `done` again and again until it says yes; throws WireFailure naming `what` at the deadline.
inline void wait_until(std::string_view what, const std::function<bool()>& done) {
    constexpr std::chrono::milliseconds kPause{5};
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline)
            throw WireFailure("waited in vain: " + std::string(what));
        std::this_thread::sleep_for(kPause);
    }
}

}  // namespace vorrim::wire
