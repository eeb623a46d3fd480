#pragma once
// What the client service needs of server discovery. The application's directory implements it.

#include <cstdint>

#include "base/file/kx_memory_file.h"

namespace vorrim {

// Addresses are in identifier form, ports in host order. Any thread.
class KnownServers {
public:
    virtual ~KnownServers() = default;

    // Whether this server takes part in discovery at all.
    [[nodiscard]] virtual bool is_public() const = 0;
    // A server greeted us.
    virtual void onHello(std::uint32_t address, std::uint16_t port) = 0;
    // A server sent its list; the entries follow through learn.
    virtual void onListHeader(std::uint32_t address, std::uint16_t port) = 0;
    // Makes the server known unless it is.
    virtual void learn(std::uint32_t address, std::uint16_t port) = 0;
    // Appends the working servers: a count byte, at most 230, and that many addresses with ports.
    virtual void writeWorkingList(kx_memory_file& out) const = 0;
};

}  // namespace vorrim
