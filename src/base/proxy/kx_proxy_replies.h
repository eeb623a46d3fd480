#pragma once
// What a proxy says: pure functions over the bytes that came, however few or wrong they are.
//
//     HTTPS    HTTP/1.0 200 reason, header lines, an empty line
//     SOCKS4   [ 00 or 04 | 5A | port | address ]
//     SOCKS5   [ 05 | method ]
//              [ 01 | 00 ]
//              [ 05 | 00 | -- | 01 | address | port ]
//
// Ports and addresses are in network order.
//
// Errors: none raise and nothing is read past the end of the bytes. Threads: any.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "base/proxy/kx_proxy_target.h"

namespace vorrim {

inline constexpr std::uint8_t kSocks4Version = 4;
inline constexpr std::uint8_t kSocks5Version = 5;
inline constexpr std::uint8_t kSocks5PasswordVersion = 1;

enum class kx_socks5_method : std::uint8_t { none = 0, password = 2 };
enum class kx_socks5_address : std::uint8_t { ipv4 = 1, name = 3 };

// How many bytes each reply has.
inline constexpr std::uint32_t kSocks4ReplySize = 8;
inline constexpr std::uint32_t kSocks5ShortReplySize = 2;
inline constexpr std::uint32_t kSocks5ReplySize = 10;

// True when the bytes end with an empty line behind another line.
[[nodiscard]] bool kx_http_header_complete(std::string_view header) noexcept;
// The number behind the first blank is 200.
[[nodiscard]] bool kx_http_granted(std::string_view header) noexcept;

// Where the proxy has connected or listens, when it granted the request.
[[nodiscard]] std::optional<kx_proxy_endpoint> kx_socks4_granted(
    std::span<const std::byte> reply) noexcept;

// None when the proxy takes no method that we offered.
[[nodiscard]] std::optional<kx_socks5_method> kx_socks5_chosen_method(
    std::span<const std::byte> reply) noexcept;
[[nodiscard]] bool kx_socks5_authenticated(std::span<const std::byte> reply) noexcept;
// The bytes of an address that did not come are 0: version, code and kind of address decide.
[[nodiscard]] std::optional<kx_proxy_endpoint> kx_socks5_granted(
    std::span<const std::byte> reply) noexcept;

}  // namespace vorrim
