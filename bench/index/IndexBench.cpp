// What does each step on the road of a file, and of a question about files, cost by itself?
//
//     index_bench                                  an index of 100 thousand files
//     VORRIM_BENCH_FILES=1000000 index_bench       that many instead
//     index_bench --benchmark_filter=Leave
//
// One thread, nobody else there. For lists, publishing and leaving the rate is files a second, of
// one file's processor time; for the others a time is that of one request. growth_bench compares
// sizes and other engines.
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "bench/common/Corpus.h"
#include "bench/common/IndexEngine.h"
#include "bench/common/Measure.h"
#include "bench/common/Queries.h"
#include "client/index/TextSignature.h"
#include "client/index/keyword_hash.h"
#include "meta/FrozenRecord.h"
#include "search/Evaluator.h"
#include "search/Search.h"

namespace vorrim::bench {
namespace {

const Corpus& corpus() {
    static const Corpus one(20240229);
    return one;
}

std::uint64_t files() {
    const char* const given = std::getenv("VORRIM_BENCH_FILES");
    return given != nullptr ? std::strtoull(given, nullptr, 10) : 100'000;
}

IndexEngine& loaded() {
    static IndexEngine engine;
    static const bool filled = [] {
        engine.publish(corpus(), files(), 0);
        return true;
    }();
    benchmark::DoNotOptimize(filled);
    return engine;
}

std::vector<FrozenRecord> some_records() {
    kx_memory_file list = corpus().list(0, 1000);
    return *read_frozen_list(list);
}

std::size_t turn(std::size_t at, std::size_t count) {
    return at + 1 == count ? 0 : at + 1;
}

// How long does a published list of 200 take to become records?
void DecodeAList(benchmark::State& state) {
    kx_memory_file list = corpus().list(0, kListFiles);
    for (auto _ : state) {
        list.seek(0);
        benchmark::DoNotOptimize(read_frozen_list(list));
    }
    state.SetItemsProcessed(state.iterations() * kListFiles);
}

// How long does one record take to be checked and put into its lasting form?
void FreezeARecord(benchmark::State& state) {
    kx_memory_file record(512);
    corpus().append_record(1, record);
    for (auto _ : state) {
        record.seek(0);
        benchmark::DoNotOptimize(FrozenRecord::from_network(record));
    }
}

// And the two things that are made of a new record before the index is locked: its words, and the
// signature of its texts?
void TakeTheWords(benchmark::State& state) {
    const auto records = some_records();
    std::size_t at = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(keywords_of(records[at].view()));
        at = turn(at, records.size());
    }
}
void SignARecord(benchmark::State& state) {
    const auto records = some_records();
    std::size_t at = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(signature_of(records[at].view()));
        at = turn(at, records.size());
    }
}

// How long does a search take to decide about one record that it looks at?
void EvaluateACandidate(benchmark::State& state) {
    const auto records = some_records();
    const Query query = query_classes()[0].make(corpus(), *std::make_unique<Random>(3));
    Search search;
    kx_memory_file wire = kx_memory_file::reading(std::as_bytes(std::span(query.wire)));
    if (!search.read(wire)) state.SkipWithError("the request cannot be read");
    search.extract_keyword();
    std::size_t at = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(search.matches(records[at].view()));
        at = turn(at, records.size());
    }
}

// And about the longest record that a client may publish, when the search asks for that many texts:
// leaf by leaf, and all at once?
void EvaluateManyTexts(benchmark::State& state, bool at_once) {
    Random random(4);
    const auto letters = [&random](std::uint32_t count) {
        std::string text(count, 'a');
        for (char& c : text)
            c = static_cast<char>('a' + random.below(26));
        return text;
    };
    kx_memory_file bytes(8192);
    write_bytes(bytes, corpus().hash(1).bytes);
    write_32(bytes, 0);
    write_16(bytes, 0);
    constexpr std::uint32_t kTags = 63;
    write_32(bytes, kTags);
    for (std::uint32_t tag = 0; tag < kTags; ++tag) {
        write_8(bytes, TagType::text);
        write_string("x", bytes);
        write_string(letters(120), bytes);
    }
    bytes.seek(0);
    const FrozenRecord record = FrozenRecord::from_network(bytes);

    std::vector<std::unique_ptr<SearchNode>> level;
    for (std::int64_t i = 0; i < state.range(0); ++i)
        level.push_back(std::make_unique<SN_Substring>(letters(6)));
    for (; level.size() > 1; level.resize((level.size() + 1) / 2))
        for (std::size_t i = 0; i < level.size() / 2; ++i)
            level[i] = std::make_unique<SN_Operator>(CombineOp::kOr, std::move(level[i]),
                                                     std::move(level[level.size() - 1 - i]));
    Search search;
    search.add_term(std::move(level.front()), CombineOp::kOr);
    Evaluator evaluator(search);
    for (auto _ : state)
        benchmark::DoNotOptimize(at_once ? evaluator.matches(record.view())
                                         : search.matches(record.view()));
}

enum class Measured { publish, leave };

// How long does a file take to come, and to go with its client, when nobody else has it, and when
// others have it?
void ComeAndGo(benchmark::State& state, bool known, Measured measured) {
    IndexEngine& engine = loaded();
    constexpr ClientId kGuest{0x0AFFFFFF};
    static std::uint64_t next = files();
    Random random(1);
    for (auto _ : state) {
        std::vector<kx_memory_file> lists;
        for (std::uint32_t done = 0; done < kClientFiles; done += kListFiles) {
            lists.push_back(corpus().list(
                known ? random.below(files() / kListFiles) * kListFiles : next, kListFiles));
            next += kListFiles;
        }
        const double start = processor_seconds();
        for (kx_memory_file& list : lists)
            engine.publish(list, kGuest);
        const double between = processor_seconds();
        engine.index().remove_client(kGuest);
        const double end = processor_seconds();
        state.SetIterationTime(measured == Measured::publish ? between - start : end - between);
    }
    state.SetItemsProcessed(state.iterations() * kClientFiles);
}

// How long does the answer take who has a file?
void Sources(benchmark::State& state) {
    const KeywordFileIndex& index = loaded().index();
    Random random(2);
    std::vector<FileHash> hashes;
    for (int i = 0; i < 20000; ++i)
        hashes.push_back(corpus().hash(random.below(files())));
    kx_memory_file out(4096);
    std::size_t at = 0;
    for (auto _ : state) {
        out.clear();
        benchmark::DoNotOptimize(index.write_sources(hashes[at], out));
        at = turn(at, hashes.size());
    }
}

// How long does a search take from its wire form to the records of its reply?
void AskFor(benchmark::State& state, const QueryClass& of) {
    IndexEngine& engine = loaded();
    const std::vector<Query> queries = of.some(corpus(), 100);
    kx_memory_file out(64 * 1024);
    std::size_t at = 0;
    std::uint64_t found = 0;
    for (auto _ : state) {
        out.clear();
        found += engine.search(queries[at], out);
        at = turn(at, queries.size());
    }
    state.counters["found"] = static_cast<double>(found) / static_cast<double>(state.iterations());
}

BENCHMARK(DecodeAList);
BENCHMARK(FreezeARecord);
BENCHMARK(TakeTheWords);
BENCHMARK(SignARecord);
BENCHMARK(EvaluateACandidate);
BENCHMARK_CAPTURE(EvaluateManyTexts, LeafByLeaf, false)->Arg(64)->Arg(1024)->Arg(32768);
BENCHMARK_CAPTURE(EvaluateManyTexts, AtOnce, true)->Arg(64)->Arg(1024)->Arg(32768);
BENCHMARK_CAPTURE(ComeAndGo, PublishNew, false, Measured::publish)->UseManualTime();
BENCHMARK_CAPTURE(ComeAndGo, PublishKnown, true, Measured::publish)->UseManualTime();
BENCHMARK_CAPTURE(ComeAndGo, LeaveNew, false, Measured::leave)->UseManualTime();
BENCHMARK_CAPTURE(ComeAndGo, LeaveKnown, true, Measured::leave)->UseManualTime();
BENCHMARK(Sources);

}  // namespace
}  // namespace vorrim::bench

int main(int argc, char** argv) {
    using namespace vorrim::bench;
    for (const QueryClass& of : query_classes())
        benchmark::RegisterBenchmark(
            (std::string(of.scan ? "Scan/" : "KeywordSearch/") + of.name).c_str(),
            [&of](benchmark::State& state) { AskFor(state, of); });
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
