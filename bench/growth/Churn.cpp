#include "bench/growth/Churn.h"

#include <chrono>
#include <optional>

namespace vorrim::bench {

Churn::Churn(IndexEngine& engine, const Corpus& corpus, std::uint64_t first_file,
             std::uint32_t files_per_second)
    : engine_(engine), files_per_second_(files_per_second) {
    for (std::uint32_t first = 0; first < kGuests * kClientFiles; first += kListFiles) {
        const kx_memory_file list = corpus.list(first_file + first, kListFiles);
        const auto bytes = list.contents();
        lists_.emplace_back(bytes.begin(), bytes.end());
    }
    start_ = std::chrono::steady_clock::now();
    thread_ = std::thread([this] { run(); });
}

Churn::~Churn() {
    stop_ = true;
    thread_.join();
}

double Churn::rate() const {
    const std::chrono::duration<double> since = std::chrono::steady_clock::now() - start_;
    return static_cast<double>(published_) / since.count();
}

void Churn::withdraw(FileIndex::Departure& departure) {
    FileIndex& index = engine_.index();
    const std::int32_t until = index.source_total() - static_cast<std::int32_t>(kListFiles);
    while (index.source_total() > until && index.continue_departure(departure)) {
    }
}

// A tick publishes a list of the guest that has come last, and withdraws as many files of the one
// that came before.
void Churn::run() {
    constexpr std::uint64_t kFirstGuest = 0x00F00000;
    constexpr std::uint32_t kLists = kClientFiles / kListFiles;
    const auto tick =
        std::chrono::nanoseconds(std::chrono::seconds(1)) * kListFiles / files_per_second_;
    std::optional<FileIndex::Departure> leaving;
    std::uint32_t guest = 0;
    std::uint32_t list = 0;
    for (auto next = start_; !stop_; next += tick) {
        std::this_thread::sleep_until(next);
        const std::vector<std::byte>& bytes = lists_[guest * kLists + list];
        kx_memory_file stream = kx_memory_file::reading(bytes);
        engine_.publish(stream, IndexEngine::client(kFirstGuest + guest));
        published_ += kListFiles;
        if (leaving) withdraw(*leaving);
        if (++list < kLists) continue;
        list = 0;
        if (leaving)
            while (engine_.index().continue_departure(*leaving)) {
            }
        leaving = engine_.index().begin_departure(IndexEngine::client(kFirstGuest + guest));
        guest = (guest + 1) % kGuests;
    }
    if (leaving)
        while (engine_.index().continue_departure(*leaving)) {
        }
    engine_.index().remove_client(IndexEngine::client(kFirstGuest + guest));
}

}  // namespace vorrim::bench
