#pragma once
// IPv4 endpoints, as the operating system and the wire see them.
//
// An address travels in records and identifiers as a u32 whose bytes are the dotted text in order:
// the first number is the lowest byte. `kx_ip_address::value` gives exactly that form.
//
// Values: a kx_ip_address copies and compares. No locks; safe to share while nobody changes it.

#include <cstdint>
#include <memory>
#include <netinet/in.h>
#include <string>

#include "base/file/kx_file.h"

namespace vorrim {

// What every address can do, whether it holds a number or only a name.
class kx_net_address {
public:
    virtual ~kx_net_address() = default;

    // Writes the address without its port: dotted numbers, or the host name.
    virtual void print(kx_file& out) const = 0;
    [[nodiscard]] virtual std::unique_ptr<kx_net_address> clone() const = 0;
    virtual void set_port(std::uint16_t port) noexcept = 0;  // host byte order
    [[nodiscard]] virtual std::uint16_t get_port() const noexcept = 0;
    // True when both are IPv4 addresses of the same host; ports are not compared.
    [[nodiscard]] virtual bool same_host(const kx_net_address& other) const noexcept = 0;
    // Writes the four address bytes in network order.
    virtual void write_raw(kx_file& out) const = 0;
};

class kx_ip_address final : public kx_net_address {
public:
    kx_ip_address() noexcept;  // 0.0.0.0, port 0
    kx_ip_address(std::uint32_t value, std::uint16_t port) noexcept;
    explicit kx_ip_address(const sockaddr_in& endpoint) noexcept;

    void print(kx_file& out) const override;
    [[nodiscard]] std::unique_ptr<kx_net_address> clone() const override;
    void set_port(std::uint16_t port) noexcept override;
    [[nodiscard]] std::uint16_t get_port() const noexcept override;
    [[nodiscard]] bool same_host(const kx_net_address& other) const noexcept override;
    void write_raw(kx_file& out) const override;

    // The address in identifier form: first number of the dotted text in the lowest byte.
    [[nodiscard]] std::uint32_t value() const noexcept;
    [[nodiscard]] std::string text() const;
    [[nodiscard]] const sockaddr_in& endpoint() const noexcept { return endpoint_; }
    [[nodiscard]] sockaddr_in& endpoint() noexcept { return endpoint_; }
    // Ports count as well.
    [[nodiscard]] friend bool operator==(const kx_ip_address& a, const kx_ip_address& b) noexcept {
        return a.value() == b.value() && a.endpoint_.sin_port == b.endpoint_.sin_port;
    }

private:
    sockaddr_in endpoint_{};
};

}  // namespace vorrim
