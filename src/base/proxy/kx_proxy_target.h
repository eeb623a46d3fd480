#pragma once
// Where a proxy is to connect to, or where it listens: an IPv4 address, or a name that the proxy
// resolves itself.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace vorrim {

struct kx_proxy_endpoint final {
    std::array<std::byte, 4> address{};  // as its dotted text
    std::uint16_t port = 0;
    bool operator==(const kx_proxy_endpoint&) const = default;
};

struct kx_proxy_target final {
    kx_proxy_endpoint endpoint{};
    std::optional<std::string> name{};  // in place of the address where there is one
};

// The name, or the four numbers with dots between them.
[[nodiscard]] std::string kx_printed(const kx_proxy_target& target);

}  // namespace vorrim
