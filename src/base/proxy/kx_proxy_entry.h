#pragma once
// The table of proxies that the system's settings name, one entry for each protocol.
//
//     ftp=10.0.0.1:2121;https=proxy.example;socks=10.0.0.2
//
// Threads: none inside.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "base/memory/kx_grow_array.h"

namespace vorrim {

struct kx_proxy_entry final {
    std::string host;
    std::string protocol;
    std::int32_t port;
    bool from_system;  // read from the system's settings
};

using kx_proxy_table = kx_grow_array<std::unique_ptr<kx_proxy_entry>>;
inline constexpr std::size_t kProxyTableStep = 8;

// The port of an entry that names none: 1080 for SOCKS of any version, else 3128.
[[nodiscard]] std::int32_t kx_default_proxy_port(std::string_view protocol) noexcept;

// True when the name begins with "socks", in any case.
[[nodiscard]] bool kx_is_socks(std::string_view protocol) noexcept;

// Adds the entries of a text such as the one above; what has no "=" adds nothing. An entry named
// "socks" is taken for `protocol` where that is a SOCKS version, and for version 5 otherwise.
void kx_add_proxy_entries(kx_proxy_table& table, std::string_view text, std::string_view protocol);

// The first entry of that name, in any case; null when there is none.
[[nodiscard]] const kx_proxy_entry* kx_find_proxy_entry(const kx_proxy_table& table,
                                                        std::string_view protocol) noexcept;

}  // namespace vorrim
