#pragma once
// A network that opens no port and only notes the datagrams that are sent over it.
//
// Threads: any thread sends.

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/kx_critical_section.h"
#include "net/kx_net.h"
#include "net/kx_tcpip_socket.h"

namespace vorrim {

struct SentDatagram {
    std::string to;  // "address:port"
    std::string bytes;
    bool operator==(const SentDatagram&) const = default;
};
using Datagrams = std::vector<SentDatagram>;

class NotingNetwork final : public kx_net_protocol {
public:
    [[nodiscard]] const char* name() const noexcept override { return "notes"; }
    [[nodiscard]] std::unique_ptr<kx_socket_set> create_socket_set() override { return nullptr; }
    [[nodiscard]] std::unique_ptr<kx_net_address> resolve(std::string_view) override {
        return nullptr;
    }
    [[nodiscard]] std::unique_ptr<kx_net_socket> connect(const kx_net_address& to, SocketType,
                                                         ConnectMode) override {
        return std::make_unique<Sender>(*this, dynamic_cast<const kx_ip_address&>(to));
    }
    [[nodiscard]] kx_host_info local_host_info() override { return {}; }
    [[nodiscard]] std::unique_ptr<kx_net_socket> listen_at(const kx_ip_address&, int,
                                                           SocketType) override {
        return nullptr;
    }

    // What has been sent since the last call, in order.
    Datagrams take() {
        const kx_guard hold(lock_);
        return std::exchange(sent_, {});
    }

private:
    // Without a descriptor of its own.
    class Sender final : public kx_tcpip_socket {
    public:
        Sender(NotingNetwork& net, const kx_ip_address& to)
            : kx_tcpip_socket(-1, SocketType::datagram),
              net_(net),
              to_(to.text() + ':' + std::to_string(to.get_port())) {}

        std::int32_t write(const void* bytes, std::uint32_t count) override {
            const kx_guard hold(net_.lock_);
            net_.sent_.push_back({to_, std::string(static_cast<const char*>(bytes), count)});
            return static_cast<std::int32_t>(count);
        }
        [[nodiscard]] bool connected() const override { return true; }

    private:
        NotingNetwork& net_;
        const std::string to_;
    };

    kx_critical_section lock_;
    Datagrams sent_ GUARDED_BY(lock_);
};

}  // namespace vorrim
