#pragma once
// How the benchmarks look at time and memory.
#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <malloc.h>
#include <time.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace vorrim::bench {

using Clock = std::chrono::steady_clock;

// The processor time of this thread, for work that takes long enough to ask the system twice.
[[nodiscard]] inline double processor_seconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

[[nodiscard]] inline double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// Resident memory of the process, without what the allocator could give back at once.
[[nodiscard]] inline double resident_bytes() {
    malloc_trim(0);
    long pages = 0;
    long resident = 0;
    if (std::FILE* const file = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(file, "%ld %ld", &pages, &resident) != 2) resident = 0;
        std::fclose(file);
    }
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

// Samples of one quantity.
class Samples {
public:
    void add(double value) { values_.push_back(value); }
    void add(const Samples& others) {
        values_.insert(values_.end(), others.values_.begin(), others.values_.end());
    }
    [[nodiscard]] std::size_t count() const noexcept { return values_.size(); }
    // 0 is the lowest, 0.5 the median, 1 the highest; 0 when there are none.
    [[nodiscard]] double at(double share) const {
        if (values_.empty()) return 0;
        std::vector<double> sorted = values_;
        const auto place = static_cast<std::ptrdiff_t>(std::min(
            static_cast<double>(sorted.size() - 1), share * static_cast<double>(sorted.size())));
        std::nth_element(sorted.begin(), sorted.begin() + place, sorted.end());
        return sorted[static_cast<std::size_t>(place)];
    }

private:
    std::vector<double> values_;
};

}  // namespace vorrim::bench
