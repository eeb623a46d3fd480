// The scenarios over TCP.

#include <algorithm>
#include <chrono>
#include <functional>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

#include "Requests.h"
#include "Scenario.h"
#include "Swarm.h"
#include "meta/Opcodes.h"

namespace vorrim::load {

namespace {

constexpr std::chrono::seconds kOpenLimit{120};
constexpr std::uint64_t kFilesPerList = 200;
constexpr std::uint16_t kFirstRoom = 2;

Behaviour logging_in(std::uint16_t port = 0) {
    return {.greet = [frame = login(port)](Peer& peer) { peer.queue(frame); },
            .greeted = to_byte(Opcode::OP_ID_ASSIGNED),
            .ask = {},
            .answer = 0};
}

Behaviour finding_nobody() {
    return {.greet = {},
            .greeted = 0,
            .ask = [frame = find_nobody()](Peer& peer) { peer.queue(frame); },
            .answer = to_byte(Opcode::OP_USER_FOUND)};
}

void must_open(Swarm& swarm, std::size_t count, const Behaviour& behaviour) {
    const std::size_t opened = swarm.open(count, behaviour, kOpenLimit);
    if (opened != count) {
        throw std::runtime_error("only " + std::to_string(opened) + " of " + std::to_string(count) +
                                 " connections were let in");
    }
}

// Every connection logs in and keeps its requests open; each is answered by one frame `answer`.
Result ask_all(const Options& options, std::uint8_t answer, std::function<void(Peer&)> ask) {
    Result result;
    Swarm swarm(options);
    must_open(swarm, options.connections, logging_in());
    swarm.ask({.greet = {}, .greeted = 0, .ask = std::move(ask), .answer = answer}, options.depth,
              options.seconds, result);
    return result;
}

}  // namespace

void hold_files(Swarm& holders, const Options& options) {
    must_open(holders, options.sources, logging_in());
    for (std::size_t holder = 0; holder < options.sources; ++holder) {
        for (std::uint64_t first = 0; first < options.files; first += kFilesPerList) {
            const std::uint64_t count = std::min(kFilesPerList, options.files - first);
            // The answer to a question behind the list says that the list is in the index.
            holders.peer(holder).queue(offer(options.seed, first, count));
            holders.peer(holder).queue(find_nobody());
            if (!holders.peer(holder).flush()) throw std::runtime_error("publishing failed");
            bool answered = false;
            while (!answered) {
                holders.turn(1000,
                             [&](std::size_t, std::uint8_t opcode, std::span<const std::byte>) {
                                 answered = answered || opcode == to_byte(Opcode::OP_USER_FOUND);
                             });
                if (holders.lost() > 0) throw std::runtime_error("publishing failed");
            }
        }
    }
}

Result run_sources(const Options& options) {
    Swarm holders(options);
    hold_files(holders, options);
    Random random(options.seed);
    return ask_all(options, to_byte(Opcode::OP_FOUND_SOURCES), [&](Peer& peer) {
        peer.queue(get_sources(hash_of(options.seed, random.below(options.files))));
    });
}

Result run_find_user(const Options& options) {
    return ask_all(options, to_byte(Opcode::OP_USER_FOUND),
                   [frame = find_nobody()](Peer& peer) { peer.queue(frame); });
}

Result run_search(const Options& options) {
    Options one_holder = options;
    one_holder.sources = 1;
    Swarm holders(options);
    hold_files(holders, one_holder);
    Random random(options.seed);
    return ask_all(options, to_byte(Opcode::OP_SEARCH_RESULTS), [&](Peer& peer) {
        const std::string first = word(random);
        peer.queue(search(first, random.below(2) == 0 ? word(random) : ""));
    });
}

Result run_publish(const Options& options) {
    std::uint64_t next = 0;
    Result result = ask_all(options, to_byte(Opcode::OP_USER_FOUND), [&](Peer& peer) {
        peer.queue(offer(options.seed, next, kFilesPerList));
        peer.queue(find_nobody());
        next += kFilesPerList;
    });
    result.notes.push_back("each answer stands for a list of 200 new files");
    return result;
}

Result run_login(const Options& options) {
    Result result;
    Swarm swarm(options);
    const Bytes hello = login(0);
    const Bytes request = find_nobody();
    const auto begin_round = [&](Peer& peer) {
        peer.asked.push_back(Clock::now());
        peer.queue(hello);
        static_cast<void>(peer.flush());
    };
    const auto begin = Clock::now();
    const auto end = begin + std::chrono::duration_cast<Clock::duration>(
                                 std::chrono::duration<double>(options.seconds));
    for (std::uint32_t i = 0; i < options.connections; ++i)
        begin_round(swarm.peer(swarm.add()));
    std::vector<std::size_t> finished;
    while (Clock::now() < end) {
        swarm.turn(100, [&](std::size_t index, std::uint8_t opcode, std::span<const std::byte>) {
            Peer& peer = swarm.peer(index);
            if (opcode == to_byte(Opcode::OP_ID_ASSIGNED)) {
                peer.queue(request);
                static_cast<void>(peer.flush());
            } else if (opcode == to_byte(Opcode::OP_USER_FOUND)) {
                result.latency.record(
                    static_cast<std::uint64_t>((Clock::now() - peer.asked.front()).count()));
                ++result.answers;
                finished.push_back(index);
            }
        });
        for (const std::size_t index : finished) {
            swarm.reconnect(index);
            begin_round(swarm.peer(index));
        }
        finished.clear();
    }
    result.errors = swarm.lost();
    result.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    return result;
}

Result run_room(const Options& options) {
    Result result;
    Swarm swarm(options);
    Behaviour joining = logging_in();
    joining.greet = [frame = login(0), join = join_room(kFirstRoom)](Peer& peer) {
        peer.queue(frame);
        peer.queue(join);
    };
    joining.greeted = to_byte(Opcode::OP_ROOM_MEMBERS);
    must_open(swarm, options.connections, joining);
    // Member 0 talks, a line at a time; a round is over when every member has the line.
    const Bytes line = room_message("a line of ordinary length, said to everyone in the room");
    const auto begin = Clock::now();
    const auto end = begin + std::chrono::duration_cast<Clock::duration>(
                                 std::chrono::duration<double>(options.seconds));
    while (Clock::now() < end && swarm.lost() == 0) {
        const auto said = Clock::now();
        swarm.peer(0).queue(line);
        static_cast<void>(swarm.peer(0).flush());
        std::uint32_t heard = 0;
        while (heard < options.connections && swarm.lost() == 0) {
            swarm.turn(1000, [&](std::size_t, std::uint8_t opcode, std::span<const std::byte>) {
                if (opcode == to_byte(Opcode::OP_ROOM_TEXT)) ++heard;
            });
        }
        result.answers += heard;
        result.latency.record(static_cast<std::uint64_t>((Clock::now() - said).count()));
    }
    result.errors = swarm.lost();
    result.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    result.notes.push_back("latency: from the line's sending until every member has it");
    return result;
}

Result run_idle(const Options& options) {
    Result result;
    Swarm swarm(options);
    const auto begin = Clock::now();
    must_open(swarm, options.connections, logging_in());
    result.notes.push_back(
        "all let in after " +
        std::to_string(std::chrono::duration<double>(Clock::now() - begin).count()) + " s");
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                        std::chrono::duration<double>(options.seconds));
    while (Clock::now() < end) {
        swarm.turn(1000, [](std::size_t, std::uint8_t, std::span<const std::byte>) {});
    }
    result.answers = options.connections;
    result.errors = swarm.lost();
    result.seconds = options.seconds;
    return result;
}

Result run_unreachable(const Options& options) {
    Result result;
    // A listener whose backlog is full lets every further connect to its port hang.
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in any{};
    any.sin_family = AF_INET;
    socklen_t length = sizeof any;
    if (::bind(listener, reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0 ||
        ::listen(listener, 0) != 0 ||
        ::getsockname(listener, reinterpret_cast<sockaddr*>(&any), &length) != 0) {
        throw std::runtime_error("cannot make a listener that answers nobody");
    }
    const std::uint16_t dead_port = ntohs(any.sin_port);
    std::vector<Peer> filling(4);
    for (Peer& peer : filling) {
        static_cast<void>(peer.connect({htonl(INADDR_LOOPBACK), dead_port}, 0));
    }

    Options distinct = options;
    distinct.distinct = true;
    Swarm swarm(distinct);
    must_open(swarm, 1, logging_in());  // peer 0 asks meanwhile
    const Bytes hello = login(dead_port);
    std::uint64_t let_in = 0;
    const Behaviour asking = finding_nobody();
    Peer& asker = swarm.peer(0);
    std::uint32_t started = 0;
    auto next = Clock::now();
    const auto begin = Clock::now();
    const auto end = begin + std::chrono::seconds(60);
    while (let_in < options.connections && Clock::now() < end) {
        for (int i = 0; i < 64 && started < options.connections; ++i, ++started) {
            Peer& peer = swarm.peer(swarm.add());
            peer.asked.push_back(Clock::now());
            peer.queue(hello);
            static_cast<void>(peer.flush());
        }
        if (asker.asked.empty() && Clock::now() >= next) {
            asking.ask(asker);
            asker.asked.push_back(Clock::now());
            static_cast<void>(asker.flush());
            next = Clock::now() + std::chrono::milliseconds(1);
        }
        swarm.turn(1, [&](std::size_t index, std::uint8_t opcode, std::span<const std::byte> rest) {
            Peer& peer = swarm.peer(index);
            if (peer.asked.empty()) return;
            const auto waited =
                static_cast<std::uint64_t>((Clock::now() - peer.asked.front()).count());
            if (index == 0 && opcode == asking.answer) {
                result.probe.record(waited);
                peer.asked.pop_front();
            } else if (index != 0 && opcode == to_byte(Opcode::OP_ID_ASSIGNED)) {
                result.latency.record(waited);
                peer.asked.pop_front();
                ++let_in;
                // The highest byte of an identifier tells a low one.
                if (rest[3] != std::byte{0}) ++result.errors;
            }
        });
    }
    ::close(listener);
    result.answers = let_in;
    result.errors += options.connections - let_in;
    result.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    result.notes.push_back("latency: from the login's sending until its low identifier");
    return result;
}

}  // namespace vorrim::load
