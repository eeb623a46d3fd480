#pragma once
// The lines about operators and comparisons that a search names and nobody knows. Each evaluation
// of one is worth a line, and a search evaluates as many records as the index has, under its lock:
// whoever evaluates under a lock holds the lines back until it has given the lock up.
//
//     { HeldReports reports;  lock;  evaluate, evaluate, ...  }  ──► lines, at most so many
//
// What is evaluated in steps holds its lines in an UnknownReports over all of them.
//
// Threads: a report belongs to the thread that makes it.

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace vorrim {

enum class UnknownOperation : std::uint8_t { combination, comparison };

// Prints the line, or leaves it to the thread's HeldReports.
void report_unknown(UnknownOperation what);

// Reports that were held back.
class UnknownReports final {
public:
    static constexpr std::size_t kMostLines = 16;

    UnknownReports() = default;
    // Prints them, in order; of more than kMostLines the first ones and the number of the others.
    ~UnknownReports();
    UnknownReports(UnknownReports&& other) noexcept
        : held_(std::move(other.held_)), dropped_(std::exchange(other.dropped_, 0)) {}
    UnknownReports& operator=(UnknownReports&&) = delete;

    void hold(UnknownOperation what);

private:
    std::vector<UnknownOperation> held_;
    std::uint64_t dropped_ = 0;
};

// Holds back the thread's reports during its life: they are printed at its end, or join those that
// were held before. Declare it before the lock.
class [[nodiscard]] HeldReports final {
public:
    HeldReports() noexcept : HeldReports(own_) {}
    explicit HeldReports(UnknownReports& into) noexcept;
    ~HeldReports();
    HeldReports(const HeldReports&) = delete;
    HeldReports& operator=(const HeldReports&) = delete;

private:
    UnknownReports* const outer_;
    UnknownReports own_;
};

}  // namespace vorrim
