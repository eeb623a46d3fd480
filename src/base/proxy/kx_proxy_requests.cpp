#include "base/proxy/kx_proxy_requests.h"

#include <algorithm>
#include <utility>

#include "base/file/primitives.h"
#include "base/proxy/kx_base64.h"
#include "base/proxy/kx_proxy_replies.h"
#include "base/string/kx_printf.h"

namespace vorrim {

namespace {

// The address that tells a SOCKS4 proxy to read a name behind the user.
constexpr std::array<std::byte, 4> kSocks4NameFollows{std::byte{0}, std::byte{0}, std::byte{0},
                                                      std::byte{1}};

void write_port(kx_memory_file& to, std::uint16_t port) {
    write_8(to, static_cast<std::uint8_t>(port >> 8U));
    write_8(to, static_cast<std::uint8_t>(port & 0xFFU));
}

void write_text(kx_memory_file& to, std::string_view text) {
    write_bytes(to, std::as_bytes(std::span(text)));
}

void write_counted(kx_memory_file& to, std::string_view text) {
    write_8(to, static_cast<std::uint8_t>(text.size()));
    write_text(to, text);
}

// Control characters and blanks would end the name early, or begin another header line.
bool can_be_sent(const kx_proxy_target& target) {
    if (!target.name) return true;
    return !target.name->empty() && std::ranges::none_of(*target.name, [](char c) {
        return static_cast<unsigned char>(c) <= 0x20 || c == 0x7F;
    });
}

kx_proxy_message in_room(kx_memory_file message) {
    if (message.size() > kProxyRequestRoom) return std::nullopt;
    return message;
}

}  // namespace

kx_proxy_message kx_https_request(const kx_proxy_target& target, std::string_view user,
                                  std::string_view password) {
    if (!can_be_sent(target)) return std::nullopt;
    kx_memory_file message(kProxyRequestRoom);
    kx_printf(message,
              "CONNECT %s:%d HTTP/1.0\r\n"
              "User-Agent: Mozilla/4.0 (compatible; MSIE 5.0; Windows 98)\r\n"
              "Host: %s\r\n"
              "Content-Length: 0\r\n"
              "Proxy-Connection: Keep-Alive\r\n"
              "Pragma: no-cache\r\n",
              kx_printed(target), target.endpoint.port, target.name.value_or(""));
    if (!user.empty()) {
        const std::string credentials = std::string(user) + ':' + std::string(password);
        kx_printf(message, "Proxy-authorization: Basic %s\r\n", kx_base64(credentials));
    }
    write_text(message, "\r\n");
    return in_room(std::move(message));
}

kx_proxy_message kx_socks4_request(kx_proxy_command command, const kx_proxy_target& target) {
    if (!can_be_sent(target)) return std::nullopt;
    kx_memory_file message(kProxyRequestRoom);
    write_8(message, kSocks4Version);
    write_8(message, static_cast<std::uint8_t>(command));
    write_port(message, target.endpoint.port);
    write_bytes(message, target.name ? kSocks4NameFollows : target.endpoint.address);
    write_8(message, 0);  // the user's end
    if (target.name) {
        write_text(message, *target.name);
        write_8(message, 0);
    }
    return in_room(std::move(message));
}

kx_proxy_message kx_socks5_greeting() {
    kx_memory_file message(kProxyRequestRoom);
    write_8(message, kSocks5Version);
    write_8(message, 2);  // that many methods
    write_8(message, static_cast<std::uint8_t>(kx_socks5_method::none));
    write_8(message, static_cast<std::uint8_t>(kx_socks5_method::password));
    return message;
}

kx_proxy_message kx_socks5_credentials(std::string_view user, std::string_view password) {
    for (const std::string_view text : {user, password}) {
        if (text.empty() || text.size() > kSocks5MostText) return std::nullopt;
    }
    kx_memory_file message(kProxyRequestRoom);
    write_8(message, kSocks5PasswordVersion);
    write_counted(message, user);
    write_counted(message, password);
    return message;
}

kx_proxy_message kx_socks5_request(kx_proxy_command command, const kx_proxy_target& target) {
    if (!can_be_sent(target)) return std::nullopt;
    if (target.name && target.name->size() > kSocks5MostText) return std::nullopt;
    kx_memory_file message(kProxyRequestRoom);
    write_8(message, kSocks5Version);
    write_8(message, static_cast<std::uint8_t>(command));
    write_8(message, 0);
    if (target.name) {
        write_8(message, static_cast<std::uint8_t>(kx_socks5_address::name));
        write_counted(message, *target.name);
    } else {
        write_8(message, static_cast<std::uint8_t>(kx_socks5_address::ipv4));
        write_bytes(message, target.endpoint.address);
    }
    write_port(message, target.endpoint.port);
    return message;
}

}  // namespace vorrim
