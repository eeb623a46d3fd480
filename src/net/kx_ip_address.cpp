#include "net/kx_ip_address.h"

#include <arpa/inet.h>
#include <array>
#include <bit>

#include "base/file/primitives.h"

namespace vorrim {

namespace {

// The stored bytes are in network order, which is the order of the dotted text.
std::array<std::uint8_t, 4> stored_bytes(const sockaddr_in& endpoint) noexcept {
    return std::bit_cast<std::array<std::uint8_t, 4>>(endpoint.sin_addr.s_addr);
}

}  // namespace

kx_ip_address::kx_ip_address() noexcept : kx_ip_address(0, 0) {}

kx_ip_address::kx_ip_address(std::uint32_t value, std::uint16_t port) noexcept {
    const std::array<std::uint8_t, 4> bytes{
        static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8U),
        static_cast<std::uint8_t>(value >> 16U), static_cast<std::uint8_t>(value >> 24U)};
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
    const auto bytes = stored_bytes(endpoint_);
    return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8U |
           static_cast<std::uint32_t>(bytes[2]) << 16U |
           static_cast<std::uint32_t>(bytes[3]) << 24U;
}

std::string kx_ip_address::text() const {
    const auto bytes = stored_bytes(endpoint_);
    std::string dotted;
    for (const std::uint8_t byte : bytes) {
        if (!dotted.empty()) dotted += '.';
        dotted += std::to_string(byte);
    }
    return dotted;
}

}  // namespace vorrim
