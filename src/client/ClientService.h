#pragma once
// Everything that the client connections and the datagram door share. The server owns the parts
// and outlives every connection; a test builds its own.

#include <cstdint>

#include "client/ClientTable.h"
#include "client/FileIndex.h"
#include "client/KnownServers.h"
#include "client/RecordLimits.h"
#include "client/RoomList.h"
#include "client/WelcomeLines.h"
#include "meta/FrozenRecord.h"

namespace vorrim {

// Read once at start-up, constant while the server runs.
struct ServiceSettings {
    std::int32_t max_clients = 600;
    std::int32_t max_search_results = 200;
    std::int32_t min_version = 50;  // lowest and highest client version that is let in
    std::int32_t max_version = 2000;

    // For clients that are not exempt.
    std::uint32_t max_files = 0;  // of one client; 0: no limit
    RecordLimits record_limits{};
};

struct ClientService {
    const ServiceSettings& settings;
    const FrozenRecord& own_record;  // the server's own, as clients see it
    ClientTable& clients;
    FileIndex& files;
    RoomList& rooms;
    WelcomeLines& welcome;
    KnownServers& servers;
    // At a stop, when no thread serves any more and the index ends with its clients: theirs need
    // not be taken out of it.
    bool ending = false;
};

}  // namespace vorrim
