#pragma once
// The settings of the limits against peers that do what no ordinary client does, with their
// defaults. 0 turns a limit off. Peers of `limitExempt` have none.
//
// Threads: as ServerSettings, of which it is a part.

#include <cstdint>
#include <string>

#include "net/Limits.h"

namespace vorrim {

struct LimitSettings {
    std::string limitExempt = "127.0.0.0/8";  // networks, separated by commas

    // Seconds.
    std::int32_t firstPacketSeconds = 60;  // to the end of a connection's first packet
    std::int32_t packetSeconds = 120;      // for any one packet
    std::int32_t unreadSeconds = 30;       // without reading what waits
    std::int32_t floodSeconds = 300;       // of being slowed down, before it is closed

    // Of one address, all doors together: connections at a time, new ones a minute.
    std::int32_t addressConnections = 64;
    std::int32_t addressConnects = 120;

    // Of one connection, each minute; beyond that it is read more slowly.
    std::int32_t loginRate = 30;
    std::int32_t offerRate = 600;
    std::int32_t searchRate = 600;
    std::int32_t textRate = 300;
    std::int32_t callbackRate = 600;

    // Sets the limits of the network floor.
    void apply_to(Limits& limits) const;
};

}  // namespace vorrim
