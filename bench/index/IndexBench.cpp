// What does each operation of the keyword index cost, at several sizes?
//
//     index_bench                                        10 thousand, 100 thousand, 1 million files
//     VORRIM_BENCH_FILES=10000000 index_bench            that many instead
//     index_bench --benchmark_filter=Search/1000000
//
// Times are processor time per file for Publish and Leave (a list of 200 at a time, from frozen
// records on, one thread, nobody else), elapsed time per request for the others. p50 and p99 are
// over the single requests, which go round a set of words. `found` is the mean number of records in
// a reply. Memory prints bytes of resident memory per file with one source, and for each further
// source.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <malloc.h>
#include <memory>
#include <string>
#include <time.h>
#include <unistd.h>
#include <vector>

#include "bench/index/Corpus.h"
#include "client/KeywordFileIndex.h"
#include "search/SearchNode.h"

namespace vorrim::bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kListFiles = 200;
constexpr std::uint32_t kClientFiles = 10000;
constexpr std::uint32_t kFurtherSources = 4;
constexpr std::int32_t kTableSize = 2333;
constexpr std::int32_t kLimit = 200;
constexpr ClientId kAsker(0x7F000001);

// The processor time of this thread, for work that takes long enough to ask the system twice.
double processor_seconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double resident_bytes() {
    long pages = 0;
    long resident = 0;
    if (std::FILE* const file = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(file, "%ld %ld", &pages, &resident) != 2) resident = 0;
        std::fclose(file);
    }
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

const Corpus& corpus() {
    static const Corpus one(20240229);
    return one;
}

ClientId client(std::uint64_t number) {
    return ClientId(static_cast<std::uint32_t>(0x0A000000u + number));
}

std::vector<FrozenRecord> frozen(std::uint64_t first, std::uint32_t count) {
    kx_memory_file list = corpus().list(first, count);
    return *read_frozen_list(list);
}

// The index of one size, kept for all benchmarks of that size.
struct Loaded {
    std::uint64_t files = 0;
    double bytes_per_file = 0;
    double bytes_per_source = 0;
    std::unique_ptr<KeywordFileIndex> index;
};

const Loaded& loaded(std::uint64_t files) {
    static Loaded current;
    if (current.files == files) return current;
    current = Loaded();
    current.files = files;
    (void)corpus();
    malloc_trim(0);
    const auto publish = [&](std::uint64_t first_client) {
        for (std::uint64_t first = 0; first < files; first += kListFiles)
            current.index->publish(frozen(first, kListFiles),
                                   client(first_client + first / kClientFiles), 4662);
    };
    const double before = resident_bytes();
    current.index = std::make_unique<KeywordFileIndex>();
    current.index->init(kTableSize);
    publish(0);
    malloc_trim(0);
    const double once = resident_bytes();
    current.bytes_per_file = (once - before) / static_cast<double>(files);
    for (std::uint32_t further = 1; further <= kFurtherSources; ++further)
        publish(further * files / kClientFiles);
    malloc_trim(0);
    current.bytes_per_source =
        (resident_bytes() - once) / static_cast<double>(files * kFurtherSources);
    return current;
}

void memory(benchmark::State& state, std::uint64_t files) {
    const Loaded& index = loaded(files);
    for (auto _ : state)
        benchmark::DoNotOptimize(index.index->file_total());
    state.counters["bytes/file"] = index.bytes_per_file;
    state.counters["bytes/source"] = index.bytes_per_source;
}

enum class Measured { publish, leave };

// A client with 10,000 files that the index does not have (or that it has already) comes and goes.
void come_and_go(benchmark::State& state, std::uint64_t files, bool known, Measured measured) {
    KeywordFileIndex& index = *loaded(files).index;
    const ClientId guest = client(0x00FFFFFF);
    Random random(1);
    std::uint64_t next = files;
    for (auto _ : state) {
        double publishing = 0;
        for (std::uint32_t done = 0; done < kClientFiles; done += kListFiles) {
            const std::uint64_t first =
                known ? random.below(files / kListFiles) * kListFiles : next;
            auto records = frozen(first, kListFiles);
            next += kListFiles;
            const double start = processor_seconds();
            index.publish(std::move(records), guest, 4662);
            publishing += processor_seconds() - start;
        }
        const double start = processor_seconds();
        index.remove_client(guest);
        const double leaving = processor_seconds() - start;
        state.SetIterationTime((measured == Measured::leave ? leaving : publishing) / kClientFiles);
    }
}

void sources(benchmark::State& state, std::uint64_t files) {
    const KeywordFileIndex& index = *loaded(files).index;
    Random random(2);
    std::vector<FileHash> hashes;
    for (int i = 0; i < 20000; ++i)
        hashes.push_back(corpus().hash(random.below(files)));
    kx_memory_file out(4096);
    std::size_t at = 0;
    for (auto _ : state) {
        out.clear();
        benchmark::DoNotOptimize(index.write_sources(hashes[at], out));
        if (++at == hashes.size()) at = 0;
    }
}

using MakeRoot = std::function<std::unique_ptr<SearchNode>(Random&)>;

std::unique_ptr<SearchNode> text(std::string words) {
    return std::make_unique<SN_Substring>(std::move(words));
}
std::unique_ptr<SearchNode> both(std::int32_t op, std::unique_ptr<SearchNode> left,
                                 std::unique_ptr<SearchNode> right) {
    return std::make_unique<SN_Operator>(op, std::move(left), std::move(right));
}
// Between one file in ten and one in a hundred; a few files in a million.
const std::string& common(Random& random) {
    return corpus().word(4 + random.below(60));
}
const std::string& rare(Random& random) {
    return corpus().word(60000 + random.below(100000));
}

void search(benchmark::State& state, std::uint64_t files, const MakeRoot& make_root) {
    const KeywordFileIndex& index = *loaded(files).index;
    Random random(3);
    std::vector<std::string> requests;
    for (int i = 0; i < 100; ++i) {
        kx_memory_file wire(256);
        make_root(random)->write(wire);
        const auto bytes = wire.written();
        requests.emplace_back(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    }
    kx_memory_file out(64 * 1024);
    std::vector<double> times;
    std::uint64_t found = 0;
    for (auto _ : state) {
        const std::string& request = requests[times.size() % requests.size()];
        out.clear();
        const auto start = Clock::now();
        Search asked;
        kx_memory_file wire =
            kx_memory_file::reading(std::as_bytes(std::span(request.data(), request.size())));
        if (!asked.read(wire)) state.SkipWithError("the request cannot be read");
        found += index.search(asked, out, kLimit, kAsker);
        times.push_back(seconds_since(start));
        state.SetIterationTime(times.back());
    }
    std::sort(times.begin(), times.end());
    state.counters["p50_us"] = times[times.size() / 2] * 1e6;
    state.counters["p99_us"] = times[times.size() * 99 / 100] * 1e6;
    state.counters["found"] = static_cast<double>(found) / static_cast<double>(times.size());
}

void add_benchmarks(std::uint64_t files) {
    const auto add = [files](const std::string& name, auto run) {
        return benchmark::RegisterBenchmark(
            (name + "/" + std::to_string(files)).c_str(),
            [files, run](benchmark::State& state) { run(state, files); });
    };
    add("Memory", memory)->Iterations(1);
    const auto add_guest = [&](const char* name, bool known, Measured measured) {
        add(name, [=](benchmark::State& state,
                      std::uint64_t n) { come_and_go(state, n, known, measured); })
            ->UseManualTime()
            ->Iterations(20);
    };
    add_guest("PublishNew", false, Measured::publish);
    add_guest("PublishKnown", true, Measured::publish);
    add_guest("LeaveNew", false, Measured::leave);
    add_guest("LeaveKnown", true, Measured::leave);
    add("Sources", sources);

    const auto add_search = [&](const char* name, const MakeRoot& root) {
        add(std::string("Search") + name,
            [root](benchmark::State& state, std::uint64_t n) { search(state, n, root); })
            ->UseManualTime()
            ->Unit(benchmark::kMicrosecond);
    };
    add_search("CommonRare",
               [](Random& random) { return text(common(random) + " " + rare(random)); });
    add_search("RareCommon",
               [](Random& random) { return text(rare(random) + " " + common(random)); });
    add_search("CommonCommon",
               [](Random& random) { return text(common(random) + " " + common(random)); });
    add_search("OneCommon", [](Random& random) { return text(common(random)); });
    add_search("OneRare", [](Random& random) { return text(rare(random)); });
    add_search("Nothing", [](Random& random) {
        return text(rare(random) + " " + rare(random) + " " + common(random));
    });
    // No keyword can be taken out of these: they scan.
    add_search("OrOfRare", [](Random& random) {
        return both(CombineOp::kOr, text(rare(random)), text(rare(random)));
    });
    add_search("OrOfCommon", [](Random& random) {
        return both(CombineOp::kOr, text(common(random)), text(common(random)));
    });
    add_search("SubstringBehindOr", [](Random& random) {
        return both(CombineOp::kOr, text(rare(random).substr(1)),
                    both(CombineOp::kAnd, text(rare(random)), text(common(random))));
    });
    add_search("AllOfRareSize", [](Random&) {
        return both(CombineOp::kAnd, std::make_unique<SN_All>(),
                    std::make_unique<SN_IntTagCompare>(749'990'000, CompareOp::kGreater, "\x02"));
    });
}

}  // namespace
}  // namespace vorrim::bench

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    if (const char* const files = std::getenv("VORRIM_BENCH_FILES")) {
        vorrim::bench::add_benchmarks(std::strtoull(files, nullptr, 10));
    } else {
        for (const std::uint64_t size : {10'000u, 100'000u, 1'000'000u})
            vorrim::bench::add_benchmarks(size);
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
