#pragma once
// The server: owns every part, brings them up in order and takes them down in order.
//
//     output ─► settings ─► index ─► pool, workers ─► doors ─► housekeeping        start
//     housekeeping, workers ─► every connection ─► server list                     stop
//
// Ownership   The parts refer to one another and never to the server. The network and the clock
//             belong to the caller and outlive it. Several servers may live in one process; the
//             current output is the one of the latest.
// Threads     start, stop and the destructor belong to one thread.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/ConsoleInput.h"
#include "app/DebugLog.h"
#include "app/HousekeepingTask.h"
#include "app/OutputWriter.h"
#include "app/ServerConsole.h"
#include "app/ServerDirectory.h"
#include "app/ServerOutput.h"
#include "app/ServerSettings.h"
#include "base/Clock.h"
#include "base/Output.h"
#include "base/Random.h"
#include "client/ClientService.h"
#include "client/ClientTable.h"
#include "client/FileIndex.h"
#include "client/RoomList.h"
#include "meta/FrozenRecord.h"
#include "net/Limits.h"
#include "net/LoginThrottle.h"
#include "net/Worker.h"
#include "net/kx_net.h"
#include "net/socketPool.h"

namespace vorrim {

// The first address of this host, in identifier form; 0 when it has none.
[[nodiscard]] std::uint32_t localAddress(kx_net_protocol& net);

class Server final {
public:
    // Opens the log and makes the server's output the current one. `random` keys what clients could
    // otherwise aim at. The operator types into `input` and reads `console`.
    Server(kx_net_protocol& net, const Clock& clock, Random random, ConsoleInput& input,
           OutputWriter& console);
    // Stops what runs.
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Reads the settings and serves. A port that cannot be opened is reported and left out. Raises
    // kx_err when the system refuses a thread or a readiness set or the server list file is cut
    // short; what runs then stops with the destructor. Call once.
    void start(const std::string& settings_file);
    // The operator's part: returns when the server has been told to stop. After start.
    void run();
    // Opens the log files anew, and takes over the welcome lines and the filters of the settings
    // file as it is now; what cannot be read stays as it was. Says what came of it. Between start
    // and stop, on their thread.
    void reload() noexcept;
    // Returns when nothing runs any more, every connection is closed and the server list saved. May
    // be called again.
    void stop();

    [[nodiscard]] const ServerSettings& settings() const noexcept { return settings_; }

private:
    void load(const std::string& settings_file);
    void open_debug_log();
    void read_settings_again();
    void make_service(LoadedSettings loaded);
    void start_workers();
    void open_doors();

    kx_net_protocol& net_;
    std::string settings_file_;
    ServerSettings settings_;
    ServerOutput output_;
    ScopedOutput current_{output_};
    std::unique_ptr<DebugLog> debug_log_;  // none unless the settings ask for a log

    ConsoleInput& input_;
    Random random_;
    Limits limits_;
    ServerDirectory directory_{settings_, net_, limits_.log};
    LoginThrottle throttle_;
    ClientTable clients_{random_};
    std::unique_ptr<FileIndex> files_;
    RoomList rooms_;
    FrozenRecord own_record_;
    ServiceSettings service_settings_;
    std::optional<ClientService> service_;
    std::optional<ServerConsole> console_;
    bool serving_ = false;

    socketPool pool_;  // with every connection, so it goes before what they use
    std::vector<std::unique_ptr<Worker>> workers_;
    std::optional<HousekeepingTask> housekeeping_;
};

}  // namespace vorrim
