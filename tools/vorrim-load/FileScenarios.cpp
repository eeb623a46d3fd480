// The scenarios that publish: what is put into the index, what it weighs, how it leaves.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "Meter.h"
#include "Requests.h"
#include "Scenario.h"
#include "Swarm.h"
#include "meta/Opcodes.h"

namespace vorrim::load {

namespace {

constexpr std::uint64_t kFilesPerList = 200;
constexpr std::uint64_t kFilesPerClient = 10'000;
// What the other servers store instead of a source and of a file's record.
constexpr std::size_t kSourceBytes = 6;
constexpr std::size_t kRecordBytes = 300;
constexpr std::chrono::milliseconds kLookEvery{1};
// A departure takes a few milliseconds; somebody else's files stay for good.
constexpr std::chrono::seconds kDepartureWithin{60};

// Queues bytes and waits until that many frames of the kind have answered them.
void exchange(Swarm& swarm, std::size_t index, const Bytes& bytes, std::uint8_t answer,
              std::uint64_t answers) {
    swarm.peer(index).queue(bytes);
    if (!swarm.peer(index).flush()) throw std::runtime_error("publishing failed");
    while (answers > 0) {
        swarm.turn(1000, [&](std::size_t, const Frame& frame) {
            if (frame.code == answer && answers > 0) --answers;
        });
        if (swarm.lost() > 0) throw std::runtime_error("publishing failed");
    }
}

// A list of new files and a question behind it, whose answer says that the list is in the index.
Bytes offer_and_ask(std::uint64_t seed, std::uint64_t first, std::uint64_t count) {
    Bytes bytes = offer(seed, first, count);
    const Bytes question = find_nobody();
    bytes.insert(bytes.end(), question.begin(), question.end());
    return bytes;
}

// Publishes or stores the files from `first` on over one connection.
void put_files(Swarm& swarm, std::size_t index, const Options& options, std::uint64_t first,
               std::uint64_t count, std::size_t value_bytes) {
    const Dialect& dialect = swarm.dialect();
    for (const std::uint64_t end = first + count; first < end; first += kFilesPerList) {
        const std::uint64_t some = std::min(kFilesPerList, end - first);
        if (dialect.is_vorrim()) {
            exchange(swarm, index, offer_and_ask(options.seed, first, some),
                     to_byte(Opcode::OP_USER_FOUND), 1);
        } else {
            exchange(swarm, index, dialect.store(options.seed, first, some, value_bytes),
                     kAnyAnswer, some);
        }
    }
}

std::uint64_t indexed_files(const Options& options) {
    const std::optional<Population> population = population_of(options);
    if (!population) throw std::runtime_error("the server does not tell how many files it has");
    return population->files;
}

// Until nothing is in the index but what is held.
void await_departures(const Options& options) {
    const auto give_up = Clock::now() + kDepartureWithin;
    for (std::uint64_t files; (files = indexed_files(options)) > options.files;) {
        if (Clock::now() >= give_up) {
            throw std::runtime_error("the server keeps " + std::to_string(files) +
                                     " files, of which only " + std::to_string(options.files) +
                                     " are held: is somebody else there? (--held, --files)");
        }
        std::this_thread::sleep_for(kLookEvery);
    }
}

}  // namespace

void hold_files(Swarm& holders, const Options& options) {
    const Dialect& dialect = holders.dialect();
    if (options.held || (!dialect.is_vorrim() && dialect.store == nullptr)) return;
    const std::size_t count = dialect.is_vorrim() ? options.sources : 1;
    holders.must_open(count, greeting(dialect));
    for (std::size_t holder = 0; holder < count; ++holder)
        put_files(holders, holder, options, 0, options.files, kSourceBytes * options.sources);
}

Result run_publish(const Options& options) {
    const Dialect& dialect = dialect_of(options.speak);
    std::uint64_t next = options.held ? options.files : 0;
    if (options.held) await_departures(options);
    const auto list = [&] {
        const std::uint64_t first = std::exchange(next, next + kFilesPerList);
        return dialect.is_vorrim()
                   ? offer_and_ask(options.seed, first, kFilesPerList)
                   : dialect.store(options.seed, first, kFilesPerList, kRecordBytes);
    };
    const bool vorrim = dialect.is_vorrim();
    Result result =
        ask_all(options, {.ask = [&](Peer& peer) { peer.queue(list()); },
                          .answer = vorrim ? to_byte(Opcode::OP_USER_FOUND) : kAnyAnswer,
                          .answers_each = vorrim ? 1 : kFilesPerList});
    result.notes.push_back("each answer stands for a list of 200 new files");
    return result;
}

Result run_hold(const Options& options) {
    Result result;
    const ServerProcess server(options.server_pid);
    Swarm holders(options);
    const bool vorrim = holders.dialect().is_vorrim();
    // A client for every ten thousand files.
    const std::size_t count = vorrim ? (options.files + kFilesPerClient - 1) / kFilesPerClient : 1;
    holders.must_open(count, greeting(holders.dialect()));
    const std::uint64_t before = server.resident_bytes();
    const double used = server.processor_seconds();
    const auto begin = Clock::now();
    const std::uint64_t share = vorrim ? kFilesPerClient : options.files;
    for (std::size_t holder = 0; holder < count; ++holder) {
        put_files(holders, holder, options, holder * share,
                  std::min(share, options.files - holder * share), kRecordBytes);
    }
    result.answers = options.files;
    result.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    result.server_seconds = server.processor_seconds() - used;
    result.resident_bytes = server.resident_bytes() - before;
    if (options.hold_seconds > 0) {
        std::fputs("holding\n", stderr);
        std::this_thread::sleep_for(std::chrono::duration<double>(options.hold_seconds));
    }
    return result;
}

Result run_leave(const Options& options) {
    Result result;
    const ServerProcess server(options.server_pid);
    if (options.held) await_departures(options);
    const auto begin = Clock::now();
    const auto end = begin + std::chrono::duration_cast<Clock::duration>(
                                 std::chrono::duration<double>(options.seconds));
    // One client holds what the others find when they come and leave behind when they go.
    Options standing = options;
    standing.sources = 1;
    Swarm holders(options);
    hold_files(holders, standing);
    for (std::uint64_t first = options.files; Clock::now() < end; first += kFilesPerClient) {
        Swarm guest(options);
        guest.must_open(1, greeting(holders.dialect()));
        put_files(guest, 0, options, first, kFilesPerClient, 0);
        const double used = server.processor_seconds();
        const auto left = Clock::now();
        guest.peer(0).abort();
        await_departures(options);
        result.server_seconds += server.processor_seconds() - used;
        result.latency.record(static_cast<std::uint64_t>((Clock::now() - left).count()));
        result.answers += kFilesPerClient;
    }
    result.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    result.notes.push_back("answers: files that left; latency: until the last of 10,000 had");
    return result;
}

}  // namespace vorrim::load
