#pragma once
// Ten clients who do what clients do, and know every answer: each publishes a file of its own,
// finds it by its words, asks who has it and who is called as itself, again and again.
//
// They work on a thread of their own from the constructor to `finish`. Every second one can be
// called back.

#include <atomic>
#include <chrono>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

#include "tests/wire/harness/ServerProcess.h"
#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {

class HonestCrowd final {
public:
    static constexpr std::size_t kCount = 10;

    // The pause is between two questions of the crowd.
    explicit HonestCrowd(const ServerProcess& server,
                         std::chrono::milliseconds pause = std::chrono::milliseconds(2));
    ~HonestCrowd();
    HonestCrowd(const HonestCrowd&) = delete;
    HonestCrowd& operator=(const HonestCrowd&) = delete;

    struct Report {
        std::size_t questions = 0;
        std::chrono::microseconds median{};
        std::chrono::microseconds p99{};
        std::string wrong{};  // the first answer that was not right; empty: all were
    };
    // Ends the work and tells how it went. The clients stay connected until the destructor.
    Report finish();

private:
    void work();
    void question(std::size_t number);
    template <class Ask>
    void measure(Ask ask);

    const std::chrono::milliseconds pause_;
    std::vector<WireClient> clients_;
    std::vector<std::chrono::microseconds> latencies_;
    std::string wrong_;
    std::atomic<bool> done_{false};
    std::thread worker_;
};

}  // namespace vorrim::wire
