#pragma once
// What one run counts: answers and latencies between the end of the warm-up and the end of the run,
// and what the server's process used of the processor meanwhile.

#include <chrono>
#include <cstdint>
#include <sys/types.h>

#include "Peer.h"
#include "Scenario.h"

namespace vorrim::load {

// The accounting of another process; everything is 0 for process 0.
class ServerProcess final {
public:
    explicit ServerProcess(pid_t pid) noexcept : pid_(pid) {}

    // User and system time of all its threads, those that have ended included.
    [[nodiscard]] double processor_seconds() const noexcept;
    [[nodiscard]] std::uint64_t resident_bytes() const;
    [[nodiscard]] std::uint64_t descriptors() const;

private:
    pid_t pid_;
};

class Meter final {
public:
    // Starts the warm-up. The result must outlive the meter.
    Meter(const Options& options, Result& result);

    // To be told the time once a turn; false as soon as the run is over.
    [[nodiscard]] bool running(Clock::time_point now);

    void answered(Clock::time_point asked, Clock::time_point now, std::uint64_t answers = 1) {
        if (!counting_) return;
        result_.answers += answers;
        result_.latency.record(static_cast<std::uint64_t>((now - asked).count()));
    }

private:
    ServerProcess server_;
    Result& result_;
    Clock::time_point begin_;
    Clock::time_point end_;
    double processor_at_begin_ = 0;
    bool counting_ = false;
    bool over_ = false;
};

}  // namespace vorrim::load
