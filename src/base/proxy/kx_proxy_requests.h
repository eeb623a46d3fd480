#pragma once
// What is said to a proxy: every message that a negotiation sends, as bytes.
//
//     HTTPS    CONNECT host:port HTTP/1.0, header lines, an empty line
//     SOCKS4   [ 04 | command | port | address | 00 ]             host name: address 0.0.0.1,
//                                                                 then [ name | 00 ]
//     SOCKS5   [ 05 02 00 02 ]                                    methods: none, user and password
//              [ 01 | n | user | n | password ]
//              [ 05 | command | 00 | 01 | address | port ]        host name: [ 03 | n | name ]
//
// Ports and addresses are in network order.
//
// Errors: none raise. What cannot be said in a protocol, such as a name too long for its count, is
// no message at all.
// Threads: any.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "base/file/kx_memory_file.h"
#include "base/proxy/kx_proxy_target.h"

namespace vorrim {

enum class kx_proxy_command : std::uint8_t { connect = 1, bind = 2 };

// Messages are built in this much room; the ones with a text in them can need more and are then
// none.
inline constexpr std::uint32_t kProxyRequestRoom = 1024;
// What a count of one byte can say.
inline constexpr std::size_t kSocks5MostText = 255;

// The bytes are what the stream has written.
using kx_proxy_message = std::optional<kx_memory_file>;

// Authorises itself unless `user` is empty.
[[nodiscard]] kx_proxy_message kx_https_request(const kx_proxy_target& target,
                                                std::string_view user, std::string_view password);

[[nodiscard]] kx_proxy_message kx_socks4_request(kx_proxy_command command,
                                                 const kx_proxy_target& target);

[[nodiscard]] kx_proxy_message kx_socks5_greeting();
// None when either is missing or longer than a count can say.
[[nodiscard]] kx_proxy_message kx_socks5_credentials(std::string_view user,
                                                     std::string_view password);
[[nodiscard]] kx_proxy_message kx_socks5_request(kx_proxy_command command,
                                                 const kx_proxy_target& target);

}  // namespace vorrim
