#include "base/proxy/kx_proxy_entry.h"

#include "base/string/kx_strtok.h"
#include "base/string/strings.h"

namespace vorrim {

namespace {

constexpr std::string_view kSocks = "socks";
constexpr std::string_view kAnySocks = "socksv5";  // what "socks" alone stands for
constexpr std::int32_t kSocksPort = 1080;
constexpr std::int32_t kHttpPort = 3128;

}  // namespace

bool kx_is_socks(std::string_view protocol) noexcept {
    return protocol.size() >= kSocks.size() &&
           kx_memicmp(protocol.data(), kSocks.data(), kSocks.size()) == 0;
}

std::int32_t kx_default_proxy_port(std::string_view protocol) noexcept {
    return kx_is_socks(protocol) ? kSocksPort : kHttpPort;
}

void kx_add_proxy_entries(kx_proxy_table& table, std::string_view text, std::string_view protocol) {
    constexpr kx_char_set kBetween(";");
    std::string_view entry;
    for (std::int32_t at = kx_strtok(text, kBetween, 0, entry); at != 0;
         at = kx_strtok(text, kBetween, at, entry)) {
        const std::size_t equals = entry.find('=');
        if (equals == std::string_view::npos) continue;
        std::string_view name = entry.substr(0, equals);
        if (kx_stricmp(name, kSocks) == 0) name = kx_is_socks(protocol) ? protocol : kAnySocks;
        const std::string_view place = entry.substr(equals + 1);
        const std::size_t colon = place.find(':');
        const std::int32_t port = colon == std::string_view::npos
                                      ? kx_default_proxy_port(name)
                                      : kx_atoi(place.substr(colon + 1));
        table.add(std::make_unique<kx_proxy_entry>(
            kx_proxy_entry{std::string(place.substr(0, colon)), std::string(name), port, true}));
    }
}

const kx_proxy_entry* kx_find_proxy_entry(const kx_proxy_table& table,
                                          std::string_view protocol) noexcept {
    for (const auto& entry : table) {
        if (kx_stricmp(entry->protocol, protocol) == 0) return entry.get();
    }
    return nullptr;
}

}  // namespace vorrim
