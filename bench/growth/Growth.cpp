// What do publishing, leaving, sources, searches and memory cost, from ten thousand files to ten
// million, and what do the same searches cost elsewhere?
//
//     growth_bench                          10 thousand, 100 thousand, 1 million files, with peers
//     growth_bench --files 10000000         that many instead
//     growth_bench --json results.json      the figures for other programs
//
// Publishing, leaving: processor time per file of one thread, nobody else there; publishing is
// reading a list of 200 from the wire and entering it. Sources: elapsed time per request. Searches:
// elapsed time per request, from the wire form of the expression to the records in the reply; the
// engines take turns, round by round, in one order and then in the other. A turn begins with some
// searches that are not timed, for the engines before have driven its program out of the caches as
// well as its data. Memory: resident bytes per file with one source, and for each
// further source. Each size is measured in a process of its own.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "bench/common/Corpus.h"
#include "bench/common/Engine.h"
#include "bench/common/IndexEngine.h"
#include "bench/common/Measure.h"
#include "bench/common/Queries.h"
#include "bench/growth/Churn.h"

namespace vorrim::bench {
namespace {

using Json = nlohmann::ordered_json;

struct Options {
    std::vector<std::uint64_t> files = {10'000, 100'000, 1'000'000};
    std::uint64_t peers_up_to = 1'000'000;  // larger indexes are measured alone
    std::uint64_t seed = 20240229;
    std::uint32_t rounds = 5;
    std::uint32_t queries = 200;
    double churn_seconds = 1;
    std::vector<std::string> only;  // classes of searches; empty: all
    bool peers = true;
    bool processor_time = false;
    std::string json;
};

constexpr std::uint32_t kFurtherSources = 4;
constexpr std::uint64_t kFurtherFiles = 500'000;  // so many files at most get further sources
constexpr std::uint32_t kChurnRate = 50'000;
constexpr std::uint32_t kAFew = 20;  // one in so many
constexpr double kMicro = 1e6;

Json summary(const Samples& samples) {
    return {{"median", samples.at(0.5)}, {"min", samples.at(0)}, {"max", samples.at(1)}};
}

// One size, in order: memory, operations, searches, searches under churn.
class Size {
public:
    Size(const Options& options, const Corpus& corpus, std::uint64_t files)
        : options_(options), corpus_(corpus), files_(files) {}

    Json measure() {
        std::printf("%lu files\n", static_cast<unsigned long>(files_));
        Json result = {{"files", files_}};
        result["memory"] = fill();
        result["operations"] = operations();
        result["searches"] = searches();
        if (options_.churn_seconds > 0) result["churn"] = churn();
        return result;
    }

private:
    void say(const char* what, const char* unit, const Samples& samples) {
        std::printf("  %-22s %8.3f %s (%.3f to %.3f)\n", what, samples.at(0.5), unit, samples.at(0),
                    samples.at(1));
        std::fflush(stdout);
    }

    Json fill() {
        const double before = resident_bytes();
        engine_ = std::make_unique<IndexEngine>();
        engine_->publish(corpus_, files_, 0);
        const double once = resident_bytes();
        const std::uint64_t further = std::min(files_, kFurtherFiles);
        for (std::uint32_t time = 1; time <= kFurtherSources; ++time)
            engine_->publish(corpus_, further, time * (files_ / kClientFiles + 1));
        const double per_file = (once - before) / static_cast<double>(files_);
        const double per_source =
            (resident_bytes() - once) / static_cast<double>(further * kFurtherSources);
        std::printf("  %-22s %8.1f bytes, %.1f for each further source\n", "memory of a file",
                    per_file, per_source);
        return {{"bytes_per_file", per_file}, {"bytes_per_further_source", per_source}};
    }

    Json operations() {
        Json result;
        const auto add = [&](const char* name, const Samples& samples) {
            say(name, "us", samples);
            result[name] = summary(samples);
        };
        Samples decode;
        for (std::uint32_t round = 0; round < options_.rounds; ++round) {
            std::vector<kx_memory_file> lists = guest_lists(false);
            const double start = processor_seconds();
            for (kx_memory_file& list : lists)
                if (read_frozen_list(list)->size() != kListFiles) std::abort();
            decode.add((processor_seconds() - start) * kMicro / kClientFiles);
        }
        add("decode", decode);
        for (const bool known : {false, true}) {
            Samples publish;
            Samples leave;
            for (std::uint32_t round = 0; round < options_.rounds; ++round) {
                std::vector<kx_memory_file> lists = guest_lists(known);
                double start = processor_seconds();
                for (kx_memory_file& list : lists)
                    engine_->publish(list, kGuest);
                publish.add((processor_seconds() - start) * kMicro / kClientFiles);
                start = processor_seconds();
                engine_->index().remove_client(kGuest);
                leave.add((processor_seconds() - start) * kMicro / kClientFiles);
            }
            add(known ? "publish_known" : "publish_new", publish);
            add(known ? "leave_known" : "leave_new", leave);
        }
        add("sources", sources());
        return result;
    }

    // The lists of a client with ten thousand files, which the index has already or has not.
    std::vector<kx_memory_file> guest_lists(bool known) {
        std::vector<kx_memory_file> lists;
        for (std::uint32_t done = 0; done < kClientFiles; done += kListFiles) {
            lists.push_back(corpus_.list(
                known ? random_.below(files_ / kListFiles) * kListFiles : next_, kListFiles));
            next_ += kListFiles;
        }
        return lists;
    }

    Samples sources() {
        constexpr std::uint32_t kRequests = 10'000;
        Samples samples;
        kx_memory_file out(4096);
        for (std::uint32_t round = 0; round < options_.rounds; ++round) {
            std::vector<FileHash> hashes;
            for (std::uint32_t i = 0; i < kRequests; ++i)
                hashes.push_back(corpus_.hash(random_.below(files_)));
            const auto start = Clock::now();
            for (const FileHash& hash : hashes) {
                out.clear();
                if (!engine_->index().write_sources(hash, out)) std::abort();
            }
            samples.add(seconds_since(start) * kMicro / kRequests);
        }
        return samples;
    }

    // Processor time costs a system call each, but holds while others use the machine.
    [[nodiscard]] double now() const {
        return options_.processor_time ? processor_seconds() : seconds_since(Clock::time_point());
    }
    [[nodiscard]] bool wanted(const QueryClass& of) const {
        const auto& only = options_.only;
        return only.empty() || std::find(only.begin(), only.end(), of.name) != only.end();
    }
    struct Timed {
        Samples microseconds;
        std::uint64_t found = 0;
        Json rounds = Json::array();  // of each, what it took

        void add(const Timed& round) {
            microseconds.add(round.microseconds);
            found += round.found;
            rounds.push_back(
                {{"p50_us", round.microseconds.at(0.5)}, {"p99_us", round.microseconds.at(0.99)}});
        }
    };
    void ask(Engine& engine, std::span<const Query> queries, Timed& into) {
        for (const Query& query : queries) {
            out_.clear();
            const double start = now();
            into.found += engine.search(query, out_);
            into.microseconds.add((now() - start) * kMicro);
        }
    }

    Json searches() {
        std::vector<std::unique_ptr<Engine>> others = load_others();
        Json result = Json::array();
        for (const QueryClass& of : query_classes()) {
            if (!wanted(of)) continue;
            const std::uint32_t untimed = options_.queries / kAFew;
            const std::vector<Query> all = of.some(corpus_, options_.queries + untimed);
            std::vector<Engine*> engines = {engine_.get()};
            for (const auto& other : others)
                if (other->answers(of)) engines.push_back(other.get());
            std::vector<Timed> timed(engines.size());
            std::printf("  %s\n", of.question);
            for (std::uint32_t round = 0; round <= options_.rounds; ++round) {
                for (std::size_t turn = 0; turn < engines.size(); ++turn) {
                    const std::size_t i = round % 2 == 0 ? turn : engines.size() - 1 - turn;
                    // What looks at everything needs no hundred requests a round to be told apart.
                    const bool few = !of.about_text || (of.scan && i > 0);
                    const std::uint32_t share = few ? kAFew : 1;
                    const std::span<const Query> queries(all);
                    Timed untold;
                    ask(*engines[i], queries.last(std::max(1u, untimed / share)), untold);
                    Timed one_round;
                    ask(*engines[i], queries.first(options_.queries / share), one_round);
                    if (round > 0) timed[i].add(one_round);  // the first one warms up
                }
            }
            for (std::size_t i = 0; i < engines.size(); ++i) {
                const Samples& times = timed[i].microseconds;
                const double found =
                    static_cast<double>(timed[i].found) / static_cast<double>(times.count());
                std::printf("    %-20s p50 %10.2f us  p99 %10.2f us  found %6.1f\n",
                            engines[i]->name(), times.at(0.5), times.at(0.99), found);
                result.push_back({{"class", of.name},
                                  {"engine", engines[i]->name()},
                                  {"p50_us", times.at(0.5)},
                                  {"p99_us", times.at(0.99)},
                                  {"found", found},
                                  {"requests", times.count()},
                                  {"rounds", timed[i].rounds}});
            }
            std::fflush(stdout);
        }
        return result;
    }

    std::vector<std::unique_ptr<Engine>> load_others() {
        std::vector<std::unique_ptr<Engine>> others;
        if (files_ > options_.peers_up_to) return others;
        others.push_back(make_walk());
        others.push_back(make_postings());
        others.push_back(make_linear(LinearKind::whole));
        others.push_back(make_linear(LinearKind::stopping));
        if (options_.peers) {
            others.push_back(make_fts5());
            if (has_redisearch()) others.push_back(make_redisearch());
            others.push_back(make_xapian(XapianKind::memory));
            others.push_back(make_xapian(XapianKind::disk));
        }
        std::vector<std::pair<std::size_t, std::size_t>> places;
        kx_memory_file all(64 * 1024 * 1024);
        for (std::uint64_t number = 0; number < files_; ++number) {
            const std::uint32_t start = all.tell();
            corpus_.append_record(number, all);
            places.emplace_back(start, all.tell() - start);
        }
        records_.assign(all.contents().begin(), all.contents().end());
        std::vector<RecordView> views;
        for (const auto& [start, size] : places)
            views.emplace_back(std::span(records_).subspan(start, size));
        for (const auto& other : others) {
            const double start = processor_seconds();
            other->load(views);
            std::printf("  loading %-20s %6.2f us a file\n", other->name(),
                        (processor_seconds() - start) * kMicro / static_cast<double>(files_));
            std::fflush(stdout);
        }
        return others;
    }

    Json churn() {
        Json result = Json::array();
        std::printf("  searches while %u files a second come and go\n", kChurnRate);
        for (const QueryClass& of : query_classes()) {
            if (!wanted(of)) continue;
            const std::vector<Query> queries = of.some(corpus_, options_.queries);
            const auto run = [&] {
                Timed timed;
                const auto start = Clock::now();
                while (seconds_since(start) < options_.churn_seconds)
                    ask(*engine_, queries, timed);
                return timed.microseconds;
            };
            const Samples quiet = run();
            const Churn churn(*engine_, corpus_, next_ + files_, kChurnRate);
            const Samples under = run();
            const double ratio = under.at(0.99) / quiet.at(0.99);
            std::printf(
                "    %-20s p99 %10.2f us, quiet %10.2f us: %5.2f times"
                " (at %.0f files/s)\n",
                of.name, under.at(0.99), quiet.at(0.99), ratio, churn.rate());
            std::fflush(stdout);
            result.push_back({{"class", of.name},
                              {"quiet_p50_us", quiet.at(0.5)},
                              {"quiet_p99_us", quiet.at(0.99)},
                              {"churn_p50_us", under.at(0.5)},
                              {"churn_p99_us", under.at(0.99)},
                              {"ratio", ratio},
                              {"files_per_second", churn.rate()}});
        }
        return result;
    }

    static constexpr ClientId kGuest{0x0AFFFFFF};

    const Options& options_;
    const Corpus& corpus_;
    const std::uint64_t files_;
    std::unique_ptr<IndexEngine> engine_;
    std::vector<std::byte> records_;
    std::uint64_t next_ = files_;  // the first file that nobody has published
    Random random_{1};
    kx_memory_file out_{64 * 1024};
};

// In a child, so that every size begins with the memory of a fresh process.
Json measure_apart(const Options& options, const Corpus& corpus, std::uint64_t files) {
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe");
    std::fflush(stdout);
    const pid_t child = fork();
    if (child < 0) throw std::runtime_error("no process");
    if (child == 0) {
        close(ends[0]);
        int status = 0;
        try {
            const std::string text = Size(options, corpus, files).measure().dump();
            if (write(ends[1], text.data(), text.size()) != static_cast<ssize_t>(text.size()))
                status = 1;
        } catch (const std::exception& failure) {
            std::fprintf(stderr, "%s\n", failure.what());
            status = 1;
        }
        std::fflush(stdout);
        _exit(status);
    }
    close(ends[1]);
    std::string text;
    char buffer[4096];
    for (ssize_t got; (got = read(ends[0], buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<std::size_t>(got));
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (status != 0) throw std::runtime_error("a measurement failed");
    return Json::parse(text);
}

int run(int argc, char** argv) {
    Options options;
    CLI::App app{"Measures the index at several sizes, and other search engines beside it"};
    app.add_option("--files", options.files, "sizes of the index")->delimiter(',');
    app.add_option("--peers-up-to", options.peers_up_to, "no other engine above this size");
    app.add_option("--seed", options.seed, "of the names");
    app.add_option("--rounds", options.rounds, "turns of each engine");
    app.add_option("--queries", options.queries, "different searches of a class, at least 20");
    app.add_option("--churn-seconds", options.churn_seconds, "for each class; 0: no churn");
    app.add_option("--only", options.only, "these searches, by their names in the JSON")
        ->delimiter(',');
    app.add_flag("!--no-peers", options.peers, "without other search engines");
    app.add_flag("--processor-time", options.processor_time,
                 "searches in processor time, for a machine that others use");
    app.add_option("--json", options.json, "file for the figures");
    CLI11_PARSE(app, argc, argv);

    const Corpus corpus(options.seed);
    Json result = {{"program", "growth_bench"}, {"seed", options.seed}};
    for (const std::uint64_t files : options.files)
        result["sizes"].push_back(measure_apart(options, corpus, files));
    if (!options.json.empty()) std::ofstream(options.json) << result.dump(2) << '\n';
    return 0;
}

}  // namespace
}  // namespace vorrim::bench

int main(int argc, char** argv) {
    try {
        return vorrim::bench::run(argc, argv);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "growth_bench: %s\n", failure.what());
        return 1;
    }
}
