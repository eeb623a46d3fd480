#include "net/kx_proxy_socket.h"

#include <utility>

#include "net/kx_named_address.h"
#include "net/kx_socket_set.h"

namespace vorrim {

namespace {

kx_proxy_target target_of(const kx_net_address& address) {
    kx_proxy_target target;
    target.endpoint.port = address.get_port();
    if (const auto* named = dynamic_cast<const kx_named_address*>(&address)) {
        target.name = named->host();
    } else {
        kx_memory_file raw(target.endpoint.address);
        address.write_raw(raw);
    }
    return target;
}

}  // namespace

class kx_proxy_socket::Line final : public kx_proxy_stream {
public:
    Line(kx_proxy_socket& socket, const WaitProgress& progress)
        : socket_(socket), progress_(progress) {}

    [[nodiscard]] bool wait_writable(int timeout_ms) override {
        return socket_.kx_tcpip_socket::wait_ready(kWritable, timeout_ms, progress_) != 0;
    }
    [[nodiscard]] bool wait_readable(int timeout_ms) override {
        return socket_.kx_tcpip_socket::wait_ready(kReadable, timeout_ms, progress_) != 0;
    }
    [[nodiscard]] std::int32_t write(std::span<const std::byte> bytes) override {
        return socket_.kx_tcpip_socket::write(bytes.data(),
                                              static_cast<std::uint32_t>(bytes.size()));
    }
    [[nodiscard]] std::int32_t read(std::span<std::byte> room) override {
        return socket_.kx_tcpip_socket::read(room.data(), static_cast<std::uint32_t>(room.size()));
    }

private:
    kx_proxy_socket& socket_;
    const WaitProgress& progress_;
};

kx_proxy_socket::kx_proxy_socket(std::unique_ptr<kx_tcpip_socket> connected,
                                 const kx_proxy_settings& settings, const kx_net_address& target,
                                 kx_proxy_command command, const Clock& clock)
    : kx_tcpip_socket(connected->release_handle(), SocketType::stream),
      negotiation_(settings, target_of(target), command),
      clock_(clock) {}

std::int32_t kx_proxy_socket::read(void* buffer, std::uint32_t count) {
    return established() ? kx_tcpip_socket::read(buffer, count) : 0;
}

std::int32_t kx_proxy_socket::write(const void* bytes, std::uint32_t count) {
    return established() ? kx_tcpip_socket::write(bytes, count) : 0;
}

std::int32_t kx_proxy_socket::write_gathered(std::span<const iovec> pieces) {
    return established() ? kx_tcpip_socket::write_gathered(pieces) : 0;
}

std::uint32_t kx_proxy_socket::wait_ready(std::uint32_t flags, int timeout_ms,
                                          const WaitProgress& progress) {
    if (established()) return kx_tcpip_socket::wait_ready(flags, timeout_ms, progress);
    const kx_time_left left(clock_, timeout_ms);
    Line line(*this, progress);
    switch (negotiation_.run(line, left)) {
        case kx_proxy_outcome::failed:
            break;
        case kx_proxy_outcome::established:
            return kx_tcpip_socket::wait_ready(flags, left(), progress);
        case kx_proxy_outcome::answered:
            return flags & kWritable;
        case kx_proxy_outcome::peer_arrived:
            return flags & kReadable;
    }
    return flags & kException;
}

}  // namespace vorrim
