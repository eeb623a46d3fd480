#pragma once
// An address that is only a host name and a port: for proxies, which look the name up themselves.
//
// Values: a kx_named_address copies. No locks; safe to share while nobody changes it.

#include <string>
#include <string_view>

#include "net/kx_ip_address.h"

namespace vorrim {

class kx_named_address final : public kx_net_address {
public:
    // The name ends at its first NUL byte, as all texts do.
    explicit kx_named_address(std::string_view host, std::uint16_t port = 0);

    void print(kx_file& out) const override;
    [[nodiscard]] std::unique_ptr<kx_net_address> clone() const override;
    void set_port(std::uint16_t port) noexcept override { port_ = port; }
    [[nodiscard]] std::uint16_t get_port() const noexcept override { return port_; }
    // Always false: which host a name means is for somebody else to say.
    [[nodiscard]] bool same_host(const kx_net_address& other) const noexcept override;
    // Four zero bytes: the place of an address that is not known.
    void write_raw(kx_file& out) const override;

    [[nodiscard]] const std::string& host() const noexcept { return host_; }

private:
    std::string host_;
    std::uint16_t port_;
};

}  // namespace vorrim
