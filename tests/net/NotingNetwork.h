#pragma once
// A network that opens no port and only notes the datagrams that are sent over it.
//
// Threads: any thread sends.

#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "base/kx_critical_section.h"
#include "net/kx_net.h"

namespace vorrim {

struct SentDatagram {
    std::string to;  // "address:port"
    std::string bytes;
    bool operator==(const SentDatagram&) const = default;
};
using Datagrams = std::vector<SentDatagram>;

inline void PrintTo(const SentDatagram& datagram, std::ostream* out) {
    *out << datagram.to << ' ';
    for (const char byte : datagram.bytes) {
        constexpr char kDigits[] = "0123456789ABCDEF";
        *out << kDigits[static_cast<unsigned char>(byte) >> 4U] << kDigits[byte & 0xF];
    }
}

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
    class Sender final : public kx_net_socket {
    public:
        Sender(NotingNetwork& net, const kx_ip_address& to) : net_(net), to_(to) {}

        std::int32_t write(const void* bytes, std::uint32_t count) override {
            std::string copy(count, '\0');
            std::memcpy(copy.data(), bytes, count);
            const kx_guard hold(net_.lock_);
            net_.sent_.push_back(
                {to_.text() + ':' + std::to_string(to_.get_port()), std::move(copy)});
            return static_cast<std::int32_t>(count);
        }

        std::int32_t read(void*, std::uint32_t) override { return -1; }
        std::uint32_t seek(std::uint32_t) override { return 0; }
        [[nodiscard]] std::uint32_t size() const override { return 0; }
        [[nodiscard]] std::uint32_t tell() const override { return 0; }
        [[nodiscard]] std::int32_t write_gathered(std::span<const iovec>) override { return -1; }
        [[nodiscard]] AcceptResult accept(std::unique_ptr<kx_net_socket>&) override {
            return AcceptResult::failed;
        }
        [[nodiscard]] std::int32_t recv_from(void*, std::uint32_t, kx_ip_address&) override {
            return -1;
        }
        std::int32_t send_to(const void*, std::uint32_t, const kx_ip_address&) override {
            return -1;
        }
        [[nodiscard]] std::size_t receive_batch(std::span<DatagramSlot>) override { return 0; }
        void send_batch(std::span<const DatagramSlot>) override {}
        [[nodiscard]] std::uint32_t wait_ready(std::uint32_t, int, const WaitProgress&) override {
            return 0;
        }
        bool close() override { return false; }
        void set_blocking(bool) override {}
        [[nodiscard]] bool connected() const override { return true; }
        [[nodiscard]] std::optional<kx_ip_address> local_address() const override {
            return std::nullopt;
        }
        [[nodiscard]] std::optional<kx_ip_address> peer_address() const override { return to_; }
        [[nodiscard]] int handle() const noexcept override { return -1; }

    private:
        NotingNetwork& net_;
        kx_ip_address to_;
    };

    kx_critical_section lock_;
    Datagrams sent_ GUARDED_BY(lock_);
};

}  // namespace vorrim
