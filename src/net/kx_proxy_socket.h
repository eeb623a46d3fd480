#pragma once
// A connection that a proxy makes for us.
//
//     owner ── read, write ──► kx_proxy_socket ── the same, once established ──► proxy ──► target
//              wait_ready ───►       │ runs the negotiation first
//
// Until the negotiation is through nothing can be read or written; wait_ready is what drives it.
//
// Ownership   It takes the connected socket's descriptor over.
// Threads     One at a time, as every socket.
// Errors      None raise. A negotiation that failed shows as kException in wait_ready.

#include "base/Clock.h"
#include "base/proxy/kx_proxy_negotiation.h"
#include "net/kx_tcpip_socket.h"

namespace vorrim {

class kx_proxy_socket final : public kx_tcpip_socket {
public:
    // `connected` is the connection to the proxy and is done with afterwards. `target` is copied.
    kx_proxy_socket(std::unique_ptr<kx_tcpip_socket> connected, const kx_proxy_settings& settings,
                    const kx_net_address& target,
                    kx_proxy_command command = kx_proxy_command::connect,
                    const Clock& clock = system_clock());

    // 0, nothing moved, until the connection stands.
    std::int32_t read(void* buffer, std::uint32_t count) override;
    std::int32_t write(const void* bytes, std::uint32_t count) override;
    [[nodiscard]] std::int32_t write_gathered(std::span<const iovec> pieces) override;

    // Where the connection stands, the wait of the plain socket. Otherwise the negotiation, in
    // which a timeout below 1 ms is no limit; then, of the asked flags:
    //     kWritable    the proxy has answered: connected, or listening in our place
    //     kReadable    for a bind: the peer has connected to it
    //     kException   it failed
    [[nodiscard]] std::uint32_t wait_ready(std::uint32_t flags, int timeout_ms,
                                           const WaitProgress& progress = {}) override;

    [[nodiscard]] kx_proxy_state state() const noexcept { return negotiation_.state(); }
    // With what the proxy said of it, where it did.
    [[nodiscard]] const kx_proxy_target& target() const noexcept { return negotiation_.target(); }

private:
    class Line;  // the plain socket, as the negotiation sees it

    [[nodiscard]] bool established() const noexcept {
        return negotiation_.state() == kx_proxy_state::established;
    }

    kx_proxy_negotiation negotiation_;
    const Clock& clock_;
};

}  // namespace vorrim
