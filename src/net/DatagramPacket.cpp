#include "net/DatagramPacket.h"

#include "base/file/primitives.h"
#include "meta/Opcodes.h"

namespace vorrim {

DatagramPacket::DatagramPacket(std::uint32_t payload) : body_(payload + 1) {
    write_8(body_, kDatagramMarker);
}

DatagramPacket::Sent DatagramPacket::send_to_server(kx_net_protocol& net, std::uint32_t address,
                                                    std::uint16_t port) {
    const kx_ip_address to(address, port);
    const auto socket = net.connect(to, SocketType::datagram, ConnectMode::non_blocking);
    if (!socket) return Sent::unreachable;
    const auto bytes = body_.written();
    const std::int32_t sent = socket->write(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    return sent == static_cast<std::int32_t>(bytes.size()) ? Sent::all : Sent::short_write;
}

}  // namespace vorrim
