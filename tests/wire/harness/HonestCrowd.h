#pragma once
// Ten clients who do what clients do, and know every answer: each publishes a file of its own,
// finds it by its words, asks who has it and who is called as itself, again and again.
//
// They work on a thread of their own from the constructor to `finish`. Every second one can be
// called back.

#include <sys/resource.h>
#include <unistd.h>

#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {

class HonestCrowd final {
public:
    static constexpr std::size_t kCount = 10;

    // The pause is between two questions of the crowd.
    explicit HonestCrowd(const ServerProcess& server,
                         std::chrono::milliseconds pause = std::chrono::milliseconds(2)) {
        for (std::size_t i = 0; i < kCount; ++i) {
            clients_.push_back(i % 2 == 0 ? WireClient::high(server, name_of(i))
                                          : WireClient::low(server, name_of(i)));
            clients_.back().publish({file(file_of(i), "work of " + name_of(i))});
        }
        worker_ = std::jthread([this, pause](const std::stop_token& done) { work(done, pause); });
    }

    HonestCrowd(const HonestCrowd&) = delete;

    struct Report {
        std::vector<std::chrono::microseconds> latencies{};  // of all questions, sorted
        std::string wrong{};  // the first answer that was not right; empty: all were
    };
    // Ends the work and tells how it went. The clients stay connected until the destructor.
    const Report& finish() {
        worker_.request_stop();
        worker_.join();
        std::ranges::sort(report_.latencies);
        return report_;
    }

private:
    static std::string name_of(std::size_t number) { return "honest" + std::to_string(number); }
    static Hash file_of(std::size_t number) {
        return hash_of(static_cast<std::uint32_t>(number), 0x60);
    }

    void work(const std::stop_token& done, std::chrono::milliseconds pause) {
        // It stands for machines elsewhere, which do not wait for the server's processor. Where
        // that may not be asked for, the latencies are a little longer.
        ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), -20);
        try {
            for (std::size_t i = 0; !done.stop_requested(); i = (i + 1) % kCount) {
                question(i);
                std::this_thread::sleep_for(pause);
            }
        } catch (const std::exception& failure) {
            report_.wrong = failure.what();
        }
    }
    void question(std::size_t number) {
        const WireClient& client = clients_[number];
        const std::size_t other = number / 2 * 2;  // low ones are only found by high ones
        const Bytes called = words(name_of(other));
        measure("a search", [&] {
            return names(client.search(called).records) == Names{"work of " + name_of(other)};
        });
        measure("the sources of a file", [&] {
            return client.sources(file_of(number)) == std::vector<Source>{client.source()};
        });
        measure("a search for a person", [&] {
            const std::vector<Record> people = client.users(called);
            return people.size() == 1 && people[0].id == clients_[other].id();
        });
    }
    template <class Ask>
    void measure(const char* what, Ask is_right) {
        const auto begin = std::chrono::steady_clock::now();
        if (!is_right()) throw WireFailure(std::string("a wrong answer: ") + what);
        report_.latencies.push_back(std::chrono::duration_cast<std::chrono::microseconds>(
            std::chrono::steady_clock::now() - begin));
    }

    std::vector<WireClient> clients_;
    Report report_;
    std::jthread worker_;
};

}  // namespace vorrim::wire
