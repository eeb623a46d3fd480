#pragma once
// The periodic work: every so many cycles all clients are told the server's status, and the server
// directory is looked after.
//
//     cycle     0         1  ...       12  ...        25  ...  721
//     status                            x              x          every 13 cycles
//     directory x                                           x     every 721 cycles
//
// A cycle is its work and then five seconds, so that the periods are a little over a minute and
// about an hour.
//
// Each cycle also says which limits have bitten, as far as it is time to.
//
// Between two cycles the directory is also looked after when somebody asks for it.
//
// Threads: its own; it reads the client table and the index through their own operations.

#include <chrono>
#include <cstdint>

#include "base/Annotations.h"
#include "base/Clock.h"
#include "base/kx_critical_section.h"
#include "client/ClientTable.h"
#include "client/FileIndex.h"
#include "net/LimitLog.h"
#include "net/kx_thread.h"

namespace vorrim {

// What the housekeeping does for server discovery; the directory of known servers implements it.
class DirectoryUpkeep {
public:
    virtual ~DirectoryUpkeep() = default;

    // Writes the known servers to the server list file.
    virtual void save() = 0;
    // Pings the known servers, unless this server is not public.
    virtual void sweep() = 0;
};

class HousekeepingTask final : public kx_thread {
public:
    static constexpr std::chrono::seconds kCycle{5};

    // Everything outlives the task. Without a directory there is none to look after, without a log
    // of limits nothing to say about them. The clock tells when to say it; the thread itself waits
    // on the system's.
    HousekeepingTask(const ClientTable& clients, const FileIndex& files, const Clock& clock,
                     DirectoryUpkeep* directory, LimitLog* limits = nullptr) noexcept
        : clients_(clients), files_(files), clock_(clock), directory_(directory), limits_(limits) {}
    ~HousekeepingTask() override { stop(); }

    // Any thread: saves and sweeps soon, once for each call, whatever the cycles say.
    void requestUpkeep();

    void run_once() override;
    // The work of one cycle, without the wait. Raises nothing: what fails is left out this time.
    void cycle();

private:
    // Cycles left before the next; due when below zero.
    static constexpr std::int32_t kStatusCountdown = 12;
    static constexpr std::int32_t kServerCountdown = 720;

    void wake() override;
    void upkeep();
    void announce_status() const;
    // Waits for a request; false when the moment has come or a stop is asked for.
    [[nodiscard]] bool take_request(std::chrono::steady_clock::time_point until);

    const ClientTable& clients_;
    const FileIndex& files_;
    const Clock& clock_;
    DirectoryUpkeep* const directory_;
    LimitLog* const limits_;
    std::int32_t statusCountdown_ = kStatusCountdown;
    std::int32_t serverCountdown_ = 0;

    kx_critical_section request_lock_;
    kx_condition requested_;
    std::uint32_t requests_ GUARDED_BY(request_lock_) = 0;
};

}  // namespace vorrim
