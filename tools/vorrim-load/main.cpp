// vorrim-load: a load generator that keeps up with the server on the same machine.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <nlohmann/json.hpp>

#include "Scenario.h"

namespace vorrim::load {

const std::vector<ScenarioInfo>& scenarios() {
    static const std::vector<ScenarioInfo> all{
        {"sources", "who has this file, over TCP", run_sources},
        {"find-user", "the smallest question, over TCP", run_find_user},
        {"search", "one and two words, over TCP", run_search},
        {"publish", "lists of 200 new files", run_publish},
        {"hold", "publish all files, and how much memory they take", run_hold},
        {"leave", "clients with 10,000 files come and go", run_leave},
        {"login", "connect, log in, one request, leave", run_login},
        {"room", "one member talks, everyone listens; the settings need a room[0]", run_room},
        {"idle", "log in and be quiet", run_idle},
        {"unreachable", "logins whose call-back hangs, with an ordinary client meanwhile",
         run_unreachable},
        {"soak", "clients come, publish, search, chat and vanish", run_soak},
        {"udp-sources", "who has this file, by datagram", run_udp_sources},
        {"tracker-list", "print the hashes that a tracker has to let in, as notes",
         run_tracker_list},
        {"udp-status", "the status, by datagram", run_udp_status},
    };
    return all;
}

namespace {

double microseconds(std::uint64_t nanoseconds) {
    return static_cast<double>(nanoseconds) / 1000.0;
}

nlohmann::json latency_json(const Histogram& histogram) {
    return {{"count", histogram.total()},
            {"p50_us", microseconds(histogram.percentile(0.5))},
            {"p90_us", microseconds(histogram.percentile(0.9))},
            {"p99_us", microseconds(histogram.percentile(0.99))},
            {"p999_us", microseconds(histogram.percentile(0.999))},
            {"max_us", microseconds(histogram.max())}};
}

void print_latency(const char* title, const Histogram& histogram) {
    if (histogram.total() == 0) return;
    std::printf("%-8s p50 %.1f us, p90 %.1f us, p99 %.1f us, p99.9 %.1f us, max %.1f us (%llu)\n",
                title, microseconds(histogram.percentile(0.5)),
                microseconds(histogram.percentile(0.9)), microseconds(histogram.percentile(0.99)),
                microseconds(histogram.percentile(0.999)), microseconds(histogram.max()),
                static_cast<unsigned long long>(histogram.total()));
}

int report(const Options& options, const Result& result) {
    const double rate = static_cast<double>(result.answers) / std::max(result.seconds, 1e-9);
    if (options.json) {
        const nlohmann::json document{{"scenario", options.scenario},
                                      {"connections", options.connections},
                                      {"depth", options.depth},
                                      {"seconds", result.seconds},
                                      {"seed", options.seed},
                                      {"answers", result.answers},
                                      {"errors", result.errors},
                                      {"answers_per_second", rate},
                                      {"server_seconds", result.server_seconds},
                                      {"resident_bytes", result.resident_bytes},
                                      {"latency", latency_json(result.latency)},
                                      {"probe", latency_json(result.probe)},
                                      {"notes", result.notes}};
        std::printf("%s\n", document.dump(2).c_str());
    } else {
        std::printf("%s: %llu answers in %.2f s, %.0f a second, %llu errors\n",
                    options.scenario.c_str(), static_cast<unsigned long long>(result.answers),
                    result.seconds, rate, static_cast<unsigned long long>(result.errors));
        if (result.server_seconds > 0) {
            std::printf("server   %.3f s of the processor, %.3f us an answer\n",
                        result.server_seconds,
                        1e6 * result.server_seconds / static_cast<double>(result.answers));
        }
        if (result.resident_bytes > 0) {
            std::printf("memory   %.1f bytes each\n", static_cast<double>(result.resident_bytes) /
                                                          static_cast<double>(result.answers));
        }
        print_latency("latency", result.latency);
        print_latency("probe", result.probe);
        for (const std::string& note : result.notes)
            std::printf("(%s)\n", note.c_str());
    }
    return result.errors == 0 ? 0 : 1;
}

int run(int argc, char** argv) {
    Options options;
    CLI::App app("Puts a load on a Vorrim server and measures its answers.");
    std::string listed = "scenarios:";
    for (const ScenarioInfo& info : scenarios()) {
        listed += std::string("\n  ") + info.name +
                  std::string(14 - std::string(info.name).size(), ' ') + info.does;
    }
    app.footer(listed);
    app.add_option("scenario", options.scenario, "what to do, see below")->required();
    app.add_option("--host", options.host, "dotted address of the server")->capture_default_str();
    app.add_option("--port", options.port, "its TCP port; datagrams go to port + 4")
        ->capture_default_str();
    app.add_option("-c,--connections", options.connections)->capture_default_str();
    app.add_option("-d,--depth", options.depth, "open requests per connection")
        ->capture_default_str();
    app.add_option("-s,--seconds", options.seconds)->capture_default_str();
    app.add_option("--seed", options.seed)->capture_default_str();
    app.add_option("--files", options.files, "files to ask about")->capture_default_str();
    app.add_option("--sources", options.sources, "clients that hold each file")
        ->capture_default_str();
    app.add_flag("--held", options.held, "another run holds those files: publish none");
    app.add_option("--hold-seconds", options.hold_seconds,
                   "hold: for so long, once \"holding\" is said on standard error");
    app.add_flag("--distinct", options.distinct, "every connection from its own loopback address");
    app.add_option("--speak", options.speak,
                   "vorrim, echo, memcached, redis, tracker-scrape, tracker-announce")
        ->capture_default_str();
    app.add_option("--server-pid", options.server_pid,
                   "the server's process, to report its processor time and memory");
    app.add_option("--csv", options.csv, "soak: a file for one line of figures every few seconds");
    app.add_option("--every", options.every, "soak: seconds from line to line")
        ->capture_default_str();
    app.add_flag("--json", options.json);
    CLI11_PARSE(app, argc, argv);
    for (const ScenarioInfo& info : scenarios()) {
        if (options.scenario == info.name) return report(options, info.run(options));
    }
    std::fprintf(stderr, "vorrim-load: no scenario is called %s; see --help\n",
                 options.scenario.c_str());
    return 2;
}

}  // namespace
}  // namespace vorrim::load

int main(int argc, char** argv) {
    try {
        return vorrim::load::run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vorrim-load: %s\n", error.what());
        return 2;
    }
}
