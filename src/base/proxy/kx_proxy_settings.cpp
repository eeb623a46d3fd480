#include "base/proxy/kx_proxy_settings.h"

#include "base/proxy/kx_proxy_entry.h"
#include "base/proxy/kx_registry_value.h"
#include "base/string/strings.h"

namespace vorrim {

namespace {

constexpr std::string_view kSystemKey =
    R"(HKEY_CURRENT_USER\Software\Microsoft\Windows\CurrentVersion\Internet Settings)";
// A longer list of proxies is none: its last entry would be half a host name.
constexpr std::size_t kProxyServerRoom = 256;

constexpr std::string_view kHttps = "HTTPS";
constexpr std::string_view kSocks4 = "SOCKSV4";
constexpr std::string_view kSocks5 = "SOCKSV5";

kx_proxy_type type_of(std::string_view protocol) noexcept {
    if (kx_stricmp(protocol, kSocks5) == 0) return kx_proxy_type::socks5;
    if (kx_stricmp(protocol, kSocks4) == 0) return kx_proxy_type::socks4;
    if (kx_stricmp(protocol, kHttps) == 0) return kx_proxy_type::https;
    return kx_proxy_type::none;
}

const kx_proxy_entry& select(kx_proxy_table& table, std::string_view protocol) {
    if (const kx_proxy_entry* const wanted = kx_find_proxy_entry(table, protocol)) return *wanted;
    if (const kx_proxy_entry* const socks = kx_find_proxy_entry(table, kSocks5)) return *socks;
    return *table.add(std::make_unique<kx_proxy_entry>(
        kx_proxy_entry{"", std::string(kHttps), kx_default_proxy_port(kHttps), false}));
}

}  // namespace

kx_proxy_settings kx_read_proxy_settings(const Registry& registry) {
    const std::string protocol = kx_registry_value(registry, "protocol", kHttps);

    const bool enabled = registry.number(kSystemKey, "ProxyEnable").value_or(0) != 0;
    kx_proxy_table table(kProxyTableStep, kProxyTableStep);
    const std::optional<std::string> servers = registry.text(kSystemKey, "ProxyServer");
    if (servers && servers->size() <= kProxyServerRoom) {
        kx_add_proxy_entries(table, *servers, protocol);
    }

    kx_proxy_settings settings;
    settings.user = kx_registry_value(registry, "uname", "");
    settings.password = kx_registry_value(registry, "pword", "");

    const kx_proxy_entry& selected = select(table, protocol);
    settings.host = selected.host;
    settings.port = selected.port;
    if (enabled) settings.type = type_of(selected.protocol);
    return settings;
}

kx_proxy_settings kx_read_proxy_settings() {
    return kx_read_proxy_settings(Registry(Registry::file_of_user()));
}

}  // namespace vorrim
