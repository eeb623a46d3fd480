#pragma once
// What the client service needs of server discovery. The application's directory implements it.

#include <cstdint>

#include "base/file/kx_memory_file.h"

namespace vorrim {

// Who told of a server, and so how much it is worth: a datagram's sender may be forged, but whoever
// forges a server's own address has to know of it.
enum class Told : std::uint8_t {
    by_others,  // anybody
    by_itself,  // it came from the server's own address
    at_home,    // by a peer that is exempt from limits
};

// Addresses are in identifier form, ports in host order. Any thread.
class KnownServers {
public:
    virtual ~KnownServers() = default;

    // Whether this server takes part in discovery at all.
    [[nodiscard]] virtual bool is_public() const = 0;
    // A server greeted us.
    virtual void onHello(std::uint32_t address, std::uint16_t port, Told told) = 0;
    // A server sent its list; the entries follow through learn.
    virtual void onListHeader(std::uint32_t address, std::uint16_t port, Told told) = 0;
    // Makes the server known unless it is, or there is no room for one more.
    virtual void learn(std::uint32_t address, std::uint16_t port, Told told) = 0;
    // Appends the working servers: a count byte, at most 230, and that many addresses with ports.
    virtual void writeWorkingList(kx_memory_file& out) const = 0;
};

}  // namespace vorrim
