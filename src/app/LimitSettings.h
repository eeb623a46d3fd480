#pragma once
// The settings of the limits against peers that do what no ordinary client does, with their
// defaults. 0 turns a limit off. Peers of `limitExempt` have none.
//
// Threads: as ServerSettings, of which it is a part.

#include <cstdint>
#include <string>

#include "base/Random.h"
#include "client/RecordLimits.h"
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

    // What one client may publish, and how large records may be: bytes altogether, number of tags,
    // bytes of a tag's name and value.
    std::int32_t clientFiles = 200'000;
    std::int32_t recordBytes = 8192;
    std::int32_t recordTags = 64;
    std::int32_t tagNameBytes = 255;
    std::int32_t tagValueBytes = 4096;

    // Reachability tests under way, altogether and towards one address; the lowest port that is
    // tested, and whether private networks are.
    std::int32_t reachTests = 256;
    std::int32_t reachTestsPerAddress = 4;
    std::int32_t reachMinPort = 1;
    bool reachPrivate = true;

    // To one place by datagram: bytes a second, bytes at once, status answers a second. Whether
    // only to count what goes beyond that.
    std::int32_t datagramBytes = 64 * 1024;
    std::int32_t datagramBurst = 512 * 1024;
    std::int32_t datagramStatus = 20;
    bool datagramCountOnly = false;

    // Known servers, altogether and of a network of 256 addresses.
    std::int32_t knownServers = 2000;
    std::int32_t serversPerNetwork = 8;

    // Sets the limits of the network floor. `random` hides from peers which places share a counter.
    void apply_to(Limits& limits, Random& random) const;
    [[nodiscard]] std::uint32_t most_files() const noexcept;
    [[nodiscard]] RecordLimits record_limits() const noexcept;
};

}  // namespace vorrim
