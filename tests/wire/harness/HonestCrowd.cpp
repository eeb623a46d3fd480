#include "tests/wire/harness/HonestCrowd.h"

#include <algorithm>
#include <exception>
#include <sys/resource.h>
#include <unistd.h>

#include "tests/wire/harness/Reader.h"

namespace vorrim::wire {

namespace {

constexpr std::uint8_t kFamily = 0x60;

std::string name_of(std::size_t number) {
    return "honest" + std::to_string(number);
}

Hash file_of(std::size_t number) {
    return hash_of(static_cast<std::uint32_t>(number), kFamily);
}

void must(bool right, const std::string& what) {
    if (!right) throw WireFailure("a wrong answer: " + what);
}

}  // namespace

HonestCrowd::HonestCrowd(const ServerProcess& server, std::chrono::milliseconds pause)
    : pause_(pause) {
    for (std::size_t i = 0; i < kCount; ++i) {
        clients_.push_back(i % 2 == 0 ? WireClient::high(server, name_of(i))
                                      : WireClient::low(server, name_of(i)));
        clients_.back().publish({file(file_of(i), "work of " + name_of(i))});
    }
    worker_ = std::thread([this] { work(); });
}

HonestCrowd::~HonestCrowd() {
    done_ = true;
    if (worker_.joinable()) worker_.join();
}

void HonestCrowd::work() {
    // It stands for machines elsewhere, which do not wait for the server's processor. Where that
    // may not be asked for, the latencies are a little longer.
    ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), -20);
    try {
        for (std::size_t i = 0; !done_; i = (i + 1) % kCount) {
            question(i);
            std::this_thread::sleep_for(pause_);
        }
    } catch (const std::exception& failure) {
        wrong_ = failure.what();
    }
}

template <class Ask>
void HonestCrowd::measure(Ask ask) {
    const auto begin = std::chrono::steady_clock::now();
    ask();
    latencies_.push_back(std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - begin));
}

void HonestCrowd::question(std::size_t number) {
    const WireClient& client = clients_[number];
    const std::size_t other = number / 2 * 2;  // low ones are only found by high ones
    measure([&] {
        const Results found = client.search(words(name_of(other)));
        must(names(found.records) == std::vector<std::string>{"work of " + name_of(other)},
             "a search");
    });
    measure([&] {
        const auto sources = client.sources(file_of(number));
        must(sources && *sources == std::vector<Source>{client.source()}, "the sources of a file");
    });
    measure([&] {
        const std::vector<Record> people = client.users(words(name_of(other)));
        must(people.size() == 1 && people[0].id == clients_[other].id(), "a search for a person");
    });
}

HonestCrowd::Report HonestCrowd::finish() {
    done_ = true;
    if (worker_.joinable()) worker_.join();
    Report report{.wrong = wrong_};
    report.questions = latencies_.size();
    if (latencies_.empty()) return report;
    std::sort(latencies_.begin(), latencies_.end());
    report.median = latencies_[latencies_.size() / 2];
    report.p99 = latencies_[latencies_.size() * 99 / 100];
    return report;
}

}  // namespace vorrim::wire
