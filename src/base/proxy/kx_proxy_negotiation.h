#pragma once
// How a connection to a proxy becomes a connection to somebody else: the exchange with each kind of
// proxy, as a state machine that moves forward only.
//
//     HTTPS    0 request ─► 2 reply ─────────────────────────────────────────────► 14
//     SOCKS4   3 request ─► 4 reply ─────────────────────────────────────────────► 14
//                                └─► 5 second reply ─────────────────────────────► 12   bind
//     SOCKS5   6 greeting ─► 7 method ─► 8 password ─► 9 request ─► 10 reply ────► 14
//                                └────────────────────────┘             └─► 11 ──► 12   bind
//     whatever goes wrong, anywhere                                             ─► 13
//
// A reply is taken as it has come once the connection is readable: one that a proxy sends in pieces
// with pauses between them fails. Of an HTTPS reply not a byte behind its header is read.
//
// Ownership   It borrows the stream for the length of a call and keeps copies of everything else.
// Errors      None raise; state 13 says that it failed.
// Threads     None inside.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/proxy/kx_proxy_requests.h"
#include "base/proxy/kx_proxy_settings.h"
#include "base/proxy/kx_proxy_stream.h"
#include "base/proxy/kx_proxy_target.h"
#include "base/proxy/kx_time_left.h"

namespace vorrim {

enum class kx_proxy_state : std::uint8_t {
    https_request = 0,
    https_reply = 2,
    socks4_request = 3,
    socks4_reply = 4,
    socks4_second_reply = 5,
    socks5_greeting = 6,
    socks5_method_reply = 7,
    socks5_authentication_reply = 8,
    socks5_request = 9,
    socks5_reply = 10,
    socks5_second_reply = 11,
    bound = 12,
    failed = 13,
    established = 14,
};

// How a call ended.
enum class kx_proxy_outcome {
    failed,
    established,   // the connection stands and was standing before the last wait for the proxy
    answered,      // the proxy has just answered: the connection stands, or it listens for us
    peer_arrived,  // whom it listened for has connected
};

class kx_proxy_negotiation final {
public:
    // Room for one reply; an HTTPS header leaves one byte of it free.
    static constexpr std::size_t kReplyRoom = 1024;

    // Settings without a proxy fail at once. A bind asks for any port.
    kx_proxy_negotiation(const kx_proxy_settings& settings, kx_proxy_target target,
                         kx_proxy_command command);

    // Goes on until there is something to say to the caller. After `answered` of a bind the next
    // call waits for the peer; after an end every call says it again.
    [[nodiscard]] kx_proxy_outcome run(kx_proxy_stream& proxy, const kx_time_left& left);

    [[nodiscard]] kx_proxy_state state() const noexcept { return state_; }
    // The target as asked for; after an answer of a SOCKS proxy with the endpoint it gave.
    [[nodiscard]] const kx_proxy_target& target() const noexcept { return target_; }

private:
    // Each does what its state says and returns the next.
    kx_proxy_state step(kx_proxy_stream& proxy, int left_ms);
    kx_proxy_state take_https_reply(kx_proxy_stream& proxy);
    kx_proxy_state take_method(kx_proxy_stream& proxy, std::span<const std::byte> reply);
    kx_proxy_state take_endpoint(const std::optional<kx_proxy_endpoint>& endpoint,
                                 kx_proxy_state second_reply);

    // Reads up to `size` bytes once, when some have come in time; what came, at most that many.
    std::span<const std::byte> receive(kx_proxy_stream& proxy, std::uint32_t size, int left_ms);

    kx_proxy_state state_;
    kx_proxy_command command_;
    kx_proxy_target target_;
    std::string user_;
    std::string password_;
    std::array<std::byte, kReplyRoom> reply_{};
    std::size_t fill_ = 0;  // of reply_
};

}  // namespace vorrim
