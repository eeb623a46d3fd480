#pragma once
// Which proxy outgoing connections go through, as the user's registry says it.
//
//     HKEY_CURRENT_USER\Software\Microsoft\Windows\CurrentVersion\Internet Settings
//         ProxyEnable         1: there is a proxy; 0 or missing: there is none
//         ProxyServer         protocol=host:port;protocol=host:port ...
//     HKEY_CURRENT_USER\Software\Brannoc\Proxy
//         protocol            which of those to use: HTTPS (default), SOCKSV4 or SOCKSV5
//         uname, pword        user name and password for it, empty by default
//         remember_password   "yes" by default; nothing here asks for it
//
// Values: settings copy. Threads: none inside.

#include <cstdint>
#include <netinet/in.h>
#include <optional>
#include <string>

#include "platform/registry.h"

namespace vorrim {

enum class kx_proxy_type : std::uint32_t { none = 0, socks4 = 1, socks5 = 2, https = 3 };

struct kx_proxy_settings final {
    kx_proxy_type type = kx_proxy_type::none;
    std::string host{};
    std::int32_t port = 0;  // as it was written; only 1 to 65535 can be connected to
    std::string user{};
    std::string password{};
    // Where the host was found, looked up on first use and kept.
    std::optional<sockaddr_in> address{};
};

// Never writes to the registry: what is missing there stays missing.
[[nodiscard]] kx_proxy_settings kx_read_proxy_settings(const Registry& registry);
// From the registry of the user whose process this is.
[[nodiscard]] kx_proxy_settings kx_read_proxy_settings();

}  // namespace vorrim
