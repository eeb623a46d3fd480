#pragma once
// A socket of the operating system, stream or datagram.

#include "net/kx_net_socket.h"

namespace vorrim {

class kx_tcpip_socket : public kx_net_socket {
public:
    explicit kx_tcpip_socket(SocketType type);              // a new socket; see creation_failed
    kx_tcpip_socket(int handle, SocketType type) noexcept;  // takes over an open descriptor
    ~kx_tcpip_socket() override;
    kx_tcpip_socket(const kx_tcpip_socket&) = delete;
    kx_tcpip_socket& operator=(const kx_tcpip_socket&) = delete;

    [[nodiscard]] bool creation_failed() const noexcept { return creation_failed_; }

    std::int32_t read(void* buffer, std::uint32_t count) override;
    std::int32_t write(const void* bytes, std::uint32_t count) override;
    std::uint32_t seek(std::uint32_t) override { return 0; }
    [[nodiscard]] std::uint32_t size() const override { return 0; }
    [[nodiscard]] std::uint32_t tell() const override { return 0; }

    [[nodiscard]] std::int32_t write_gathered(std::span<const iovec> pieces) override;
    [[nodiscard]] AcceptResult accept(std::unique_ptr<kx_net_socket>& accepted) override;
    [[nodiscard]] std::int32_t recv_from(void* buffer, std::uint32_t count,
                                         kx_ip_address& sender) override;
    std::int32_t send_to(const void* bytes, std::uint32_t count, const kx_ip_address& to) override;
    [[nodiscard]] std::size_t receive_batch(std::span<DatagramSlot> slots) override;
    void send_batch(std::span<const DatagramSlot> slots) override;
    [[nodiscard]] std::uint32_t wait_ready(std::uint32_t flags, int timeout_ms,
                                           const WaitProgress& progress = {}) override;
    bool close() override;
    void set_blocking(bool blocking) override;
    [[nodiscard]] bool connected() const override;
    [[nodiscard]] std::optional<kx_ip_address> local_address() const override;
    [[nodiscard]] std::optional<kx_ip_address> peer_address() const override;
    [[nodiscard]] int handle() const noexcept override { return handle_; }

    // Gives the descriptor up, open, to the caller; this socket is closed then.
    [[nodiscard]] int release_handle() noexcept;

private:
    int handle_ = -1;
    SocketType type_;
    bool creation_failed_ = false;
    // Who was accepted, in network order: asking the system again costs a call. None: port 0.
    std::uint16_t accepted_port_ = 0;
    std::uint32_t accepted_address_ = 0;
};

}  // namespace vorrim
