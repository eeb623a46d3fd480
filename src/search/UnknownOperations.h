#pragma once
// The lines about operators and comparisons that a search names and nobody knows. Each evaluation
// of one is worth a line, and a search evaluates as many records as the index has, under its lock:
// whoever evaluates under a lock holds the lines back until it has given the lock up.
//
//     { HeldReports reports;  lock;  evaluate, evaluate, ...  }  ──► lines, at most so many
//
// Threads: a report belongs to the thread that makes it.

#include <cstdint>
#include <vector>

namespace vorrim {

enum class UnknownOperation : std::uint8_t { combination, comparison };

// Prints the line, or leaves it to the thread's HeldReports.
void report_unknown(UnknownOperation what);

// Holds back the thread's reports during its life. Declare it before the lock.
class [[nodiscard]] HeldReports final {
public:
    static constexpr std::size_t kMostLines = 1024;

    HeldReports() noexcept;
    // Prints them, in order; of more than kMostLines the first ones and the number of the others.
    ~HeldReports();
    HeldReports(const HeldReports&) = delete;
    HeldReports& operator=(const HeldReports&) = delete;

private:
    friend void report_unknown(UnknownOperation what);

    void hold(UnknownOperation what);

    HeldReports* const outer_;
    std::vector<UnknownOperation> held_;
    std::uint64_t dropped_ = 0;
};

}  // namespace vorrim
