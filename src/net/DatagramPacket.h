#pragma once
// One datagram for another server: the marker, the opcode and the payload, with no length field.
//
//     [ E3 | opcode | payload ............ ]

#include <cstdint>

#include "base/file/kx_memory_file.h"
#include "net/kx_net.h"

namespace vorrim {

class DatagramPacket final {
public:
    enum class Sent { all = 1, short_write = 2, unreachable = -1 };

    // Room for `payload` bytes behind the marker at first; the body grows as needed.
    explicit DatagramPacket(std::uint32_t payload);

    // Written behind the marker, opcode first.
    [[nodiscard]] kx_memory_file& body() noexcept { return body_; }

    // Sends what was written to `address` (identifier form) and `port` from a socket of its own.
    Sent send_to_server(kx_net_protocol& net, std::uint32_t address, std::uint16_t port);

private:
    kx_memory_file body_;
};

}  // namespace vorrim
