#pragma once
// What the load generator does to the server: one scenario a run.

#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "Dialect.h"
#include "Histogram.h"
#include "Peer.h"

namespace vorrim::load {

struct Options {
    std::string host = "127.0.0.1";
    std::uint16_t port = 4661;
    std::string scenario;
    std::uint32_t connections = 64;
    std::uint32_t depth = 1;
    double seconds = 5;
    std::uint64_t seed = 1;
    std::uint64_t files = 10'000;  // published before, and what questions ask about
    std::uint32_t sources = 5;     // clients that hold each file
    bool held = false;             // those are there already, held by another run
    double hold_seconds = 0;       // hold: so much longer
    bool distinct = false;         // every connection from an address of its own (loopback only)
    bool json = false;
    std::string speak = "vorrim";  // see Dialect.h
    pid_t server_pid = 0;          // whose processor time and memory to report; 0: nobody's
    // Of the soak.
    std::string csv;   // where its lines go; empty: nowhere
    double every = 5;  // seconds from line to line
};

struct Result {
    std::uint64_t answers = 0;  // or lists, rounds, logins: what the scenario counts
    std::uint64_t errors = 0;
    double seconds = 0;
    double server_seconds = 0;         // of the processor, used by the server meanwhile
    std::uint64_t resident_bytes = 0;  // that the server grew by, where the scenario is about that
    Histogram latency;
    Histogram probe;  // an ordinary request every millisecond beside the scenario, where it has one
    std::vector<std::string> notes;
};

struct ScenarioInfo {
    const char* name;
    const char* does;
    Result (*run)(const Options& options);
};

// All of them, in the order of --help.
[[nodiscard]] const std::vector<ScenarioInfo>& scenarios();

[[nodiscard]] Target target_of(const Options& options);

// The pieces, one source file each.
Result run_sources(const Options& options);
Result run_find_user(const Options& options);
Result run_search(const Options& options);
Result run_publish(const Options& options);
Result run_hold(const Options& options);
Result run_leave(const Options& options);
Result run_login(const Options& options);
Result run_room(const Options& options);
Result run_idle(const Options& options);
Result run_unreachable(const Options& options);
Result run_tracker_list(const Options& options);
Result run_soak(const Options& options);
Result run_udp_sources(const Options& options);
Result run_udp_status(const Options& options);

// What a Vorrim server says when it is asked by datagram; nothing when no answer comes.
struct Population {
    std::uint32_t users = 0;
    std::uint32_t files = 0;  // counted once per source
};
[[nodiscard]] std::optional<Population> population_of(const Options& options);

}  // namespace vorrim::load
