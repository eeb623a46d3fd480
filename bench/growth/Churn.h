#pragma once
// A thread that publishes and withdraws so many files a second, a list of 200 at a time, for as
// long as it lives. The lists are made before it starts.
#include <atomic>
#include <cstdint>
#include <deque>
#include <thread>
#include <vector>

#include "bench/common/IndexEngine.h"

namespace vorrim::bench {

class Churn {
public:
    Churn(IndexEngine& engine, const Corpus& corpus, std::uint64_t first_file,
          std::uint32_t files_per_second);
    ~Churn();
    Churn(const Churn&) = delete;
    Churn& operator=(const Churn&) = delete;

    // Files published each second since the start.
    [[nodiscard]] double rate() const;

private:
    static constexpr std::uint32_t kGuests = 3;

    void run();
    void withdraw(FileIndex::Departure& departure);

    IndexEngine& engine_;
    const std::uint32_t files_per_second_;
    std::vector<std::vector<std::byte>> lists_;  // those of one guest behind those of another
    std::atomic<std::uint64_t> published_{0};
    std::atomic<bool> stop_{false};
    std::chrono::steady_clock::time_point start_;
    std::thread thread_;
};

}  // namespace vorrim::bench
