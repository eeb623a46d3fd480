#include "base/proxy/kx_proxy_replies.h"

#include <algorithm>

#include "base/file/primitives.h"
#include "base/string/strings.h"

namespace vorrim {

namespace {

constexpr std::int32_t kHttpGranted = 200;
constexpr std::uint8_t kSocks4ReplyVersion = 0;  // some proxies send the request's instead
constexpr std::uint8_t kSocks4Granted = 90;
constexpr std::uint8_t kSocks5Granted = 0;

std::uint16_t port_in(const std::byte* bytes) noexcept {
    return static_cast<std::uint16_t>(load_8(bytes) << 8U | load_8(bytes + 1));
}

}  // namespace

bool kx_http_header_complete(std::string_view header) noexcept {
    return header.ends_with("\n\n") || header.ends_with("\n\r\n");
}

bool kx_http_granted(std::string_view header) noexcept {
    const std::size_t blank = header.find(' ');
    return blank != std::string_view::npos && kx_atoi(header.substr(blank + 1)) == kHttpGranted;
}

std::optional<kx_proxy_endpoint> kx_socks4_granted(std::span<const std::byte> reply) noexcept {
    if (reply.size() < kSocks4ReplySize) return std::nullopt;
    const std::uint8_t version = load_8(&reply[0]);
    if (version != kSocks4ReplyVersion && version != kSocks4Version) return std::nullopt;
    if (load_8(&reply[1]) != kSocks4Granted) return std::nullopt;
    kx_proxy_endpoint endpoint;
    endpoint.port = port_in(&reply[2]);
    std::ranges::copy(reply.subspan<4, 4>(), endpoint.address.begin());
    return endpoint;
}

std::optional<kx_socks5_method> kx_socks5_chosen_method(std::span<const std::byte> reply) noexcept {
    if (reply.size() < kSocks5ShortReplySize || load_8(&reply[0]) != kSocks5Version) {
        return std::nullopt;
    }
    const auto method = static_cast<kx_socks5_method>(load_8(&reply[1]));
    if (method != kx_socks5_method::none && method != kx_socks5_method::password) {
        return std::nullopt;
    }
    return method;
}

bool kx_socks5_authenticated(std::span<const std::byte> reply) noexcept {
    return reply.size() >= kSocks5ShortReplySize && load_8(&reply[0]) == kSocks5PasswordVersion &&
           load_8(&reply[1]) == kSocks5Granted;
}

std::optional<kx_proxy_endpoint> kx_socks5_granted(std::span<const std::byte> reply) noexcept {
    std::array<std::byte, kSocks5ReplySize> whole{};
    std::copy_n(reply.begin(), std::min(reply.size(), whole.size()), whole.begin());
    if (load_8(&whole[0]) != kSocks5Version || load_8(&whole[1]) != kSocks5Granted ||
        load_8(&whole[3]) != static_cast<std::uint8_t>(kx_socks5_address::ipv4)) {
        return std::nullopt;
    }
    kx_proxy_endpoint endpoint;
    std::copy_n(whole.begin() + 4, endpoint.address.size(), endpoint.address.begin());
    endpoint.port = port_in(&whole[8]);
    return endpoint;
}

}  // namespace vorrim
