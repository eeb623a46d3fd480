#pragma once
// Descriptors that close themselves, addresses of the loopback network, and waits with a deadline.

#include <chrono>
#include <cstdint>
#include <functional>
#include <netinet/in.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <utility>

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
    [[nodiscard]] std::string text() const;
    bool operator==(const Address&) const = default;

private:
    std::uint32_t value_;
};

inline constexpr Address kLocalhost{127, 0, 0, 1};
inline constexpr Address kAnyAddress{0, 0, 0, 0};

// Another address of the loopback network on every call. None ends in 0: read as an identifier,
// such an address would lie in the low range.
[[nodiscard]] Address next_address();

[[nodiscard]] sockaddr_in endpoint(Address address, std::uint16_t port);
// Whether somebody accepts connections there.
[[nodiscard]] bool connects(Address address, std::uint16_t port);

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
    [[nodiscard]] static Socket open(int type);
    void bind(Address address, std::uint16_t port) const;
    // False when the address and port are taken.
    [[nodiscard]] bool try_bind(Address address, std::uint16_t port) const;
    void connect(Address address, std::uint16_t port) const;
    void listen(int backlog = SOMAXCONN) const;
    void set(int level, int option, int value) const;  // of setsockopt; refusals are passed over
    [[nodiscard]] std::uint16_t port() const;          // the local one

    // Waits until something can be read (a close counts); false when the time is over.
    [[nodiscard]] bool readable(std::chrono::milliseconds within = kDeadline) const;

    void close();
    [[nodiscard]] int descriptor() const { return descriptor_; }

private:
    int descriptor_ = -1;
};

// Asks `done` again and again until it says yes; throws WireFailure naming `what` at the deadline.
void wait_until(std::string_view what, const std::function<bool()>& done,
                std::chrono::milliseconds within = kDeadline);

}  // namespace vorrim::wire
