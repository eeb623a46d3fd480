#include "net/kx_named_address.h"

#include "base/file/primitives.h"

namespace vorrim {

kx_named_address::kx_named_address(std::string_view host, std::uint16_t port)
    : host_(host.substr(0, host.find('\0'))), port_(port) {}

void kx_named_address::print(kx_file& out) const {
    out.write(host_.data(), static_cast<std::uint32_t>(host_.size()));
}

std::unique_ptr<kx_net_address> kx_named_address::clone() const {
    return std::make_unique<kx_named_address>(*this);
}

bool kx_named_address::same_host(const kx_net_address&) const noexcept {
    return false;
}

void kx_named_address::write_raw(kx_file& out) const {
    write_32(out, 0);
}

}  // namespace vorrim
