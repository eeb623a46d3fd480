#include "net/kx_ip_address.h"

#include <arpa/inet.h>
#include <array>
#include <bit>

#include "base/file/primitives.h"
#include "meta/ClientId.h"

namespace vorrim {

namespace {

// The stored bytes are in network order, which is the order of the dotted text.
using Stored = std::array<std::byte, 4>;

Stored stored_bytes(const sockaddr_in& endpoint) noexcept {
    return std::bit_cast<Stored>(endpoint.sin_addr.s_addr);
}

}  // namespace

kx_ip_address::kx_ip_address() noexcept : kx_ip_address(0, 0) {}

kx_ip_address::kx_ip_address(std::uint32_t value, std::uint16_t port) noexcept {
    Stored bytes;
    store_32(bytes.data(), value);
    endpoint_.sin_family = AF_INET;
    endpoint_.sin_port = htons(port);
    endpoint_.sin_addr.s_addr = std::bit_cast<std::uint32_t>(bytes);
}

kx_ip_address::kx_ip_address(const sockaddr_in& endpoint) noexcept : endpoint_(endpoint) {}

void kx_ip_address::print(kx_file& out) const {
    const std::string dotted = text();
    out.write(dotted.data(), static_cast<std::uint32_t>(dotted.size()));
}

std::unique_ptr<kx_net_address> kx_ip_address::clone() const {
    return std::make_unique<kx_ip_address>(*this);
}

void kx_ip_address::set_port(std::uint16_t port) noexcept {
    endpoint_.sin_port = htons(port);
}

std::uint16_t kx_ip_address::get_port() const noexcept {
    return ntohs(endpoint_.sin_port);
}

bool kx_ip_address::same_host(const kx_net_address& other) const noexcept {
    const auto* ip = dynamic_cast<const kx_ip_address*>(&other);
    return ip != nullptr && ip->endpoint_.sin_addr.s_addr == endpoint_.sin_addr.s_addr;
}

void kx_ip_address::write_raw(kx_file& out) const {
    const auto bytes = stored_bytes(endpoint_);
    out.write(bytes.data(), bytes.size());
}

std::uint32_t kx_ip_address::value() const noexcept {
    return load_32(stored_bytes(endpoint_).data());
}

std::string kx_ip_address::text() const {
    return ipToText(value());
}

}  // namespace vorrim
