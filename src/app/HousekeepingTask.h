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
// Threads: its own; it reads the client table and the index through their own operations.

#include <chrono>
#include <cstdint>

#include "client/ClientTable.h"
#include "client/FileIndex.h"
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

    // Everything outlives the task. Without a directory there is none to look after.
    HousekeepingTask(const ClientTable& clients, const FileIndex& files,
                     DirectoryUpkeep* directory) noexcept
        : clients_(clients), files_(files), directory_(directory) {}
    ~HousekeepingTask() override { stop(); }

    void run_once() override;
    // The work of one cycle, without the wait.
    void cycle();

private:
    // Cycles left before the next; due when below zero.
    static constexpr std::int32_t kStatusCountdown = 12;
    static constexpr std::int32_t kServerCountdown = 720;

    void announce_status() const;

    const ClientTable& clients_;
    const FileIndex& files_;
    DirectoryUpkeep* const directory_;
    std::int32_t statusCountdown_ = kStatusCountdown;
    std::int32_t serverCountdown_ = 0;
};

}  // namespace vorrim
