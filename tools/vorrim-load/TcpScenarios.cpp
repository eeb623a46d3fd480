// The scenarios over TCP.

#include <algorithm>
#include <chrono>
#include <functional>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

#include "Meter.h"
#include "Requests.h"
#include "Scenario.h"
#include "Swarm.h"
#include "meta/Opcodes.h"

namespace vorrim::load {

namespace {

constexpr std::uint16_t kFirstRoom = 2;

Behaviour finding_nobody() {
    return {.greet = {},
            .greeted = 0,
            .ask = [frame = find_nobody()](Peer& peer) { peer.queue(frame); },
            .answer = to_byte(Opcode::OP_USER_FOUND)};
}

// A room that does not exist is joined without an answer, what is asked behind it has one.
void must_have_room(const Options& options) {
    Swarm swarm(options);
    Peer& peer = swarm.peer(swarm.add());
    peer.queue(join_room(kFirstRoom));
    peer.queue(find_nobody());
    static_cast<void>(peer.flush());
    bool joined = false;
    bool asked = true;
    const auto end = Clock::now() + std::chrono::seconds(10);
    while (asked && swarm.lost() == 0 && Clock::now() < end) {
        swarm.turn(1000, [&](std::size_t, const Frame& frame) {
            if (frame.code == to_byte(Opcode::OP_ROOM_MEMBERS)) joined = true;
            if (frame.code == to_byte(Opcode::OP_USER_FOUND)) asked = false;
        });
    }
    if (!asked && !joined) {
        throw std::runtime_error("the server has no room; give its settings a room[0]");
    }
}

}  // namespace

Result run_sources(const Options& options) {
    Swarm holders(options);
    hold_files(holders, options);
    const Dialect& dialect = holders.dialect();
    const std::vector<Bytes> requests = fetches(options);
    Random random(options.seed);
    return ask_all(options,
                   {.ask = [&](Peer& peer) { peer.queue(requests[random.below(requests.size())]); },
                    .answer = dialect.fetched});
}

Result run_find_user(const Options& options) {
    return ask_all(options, {.ask = [frame = find_nobody()](Peer& peer) { peer.queue(frame); },
                             .answer = to_byte(Opcode::OP_USER_FOUND)});
}

Result run_search(const Options& options) {
    Options one_holder = options;
    one_holder.sources = 1;
    Swarm holders(options);
    hold_files(holders, one_holder);
    Random random(options.seed);
    return ask_all(options,
                   {.ask =
                        [&](Peer& peer) {
                            const std::string first = word(random);
                            peer.queue(search(first, random.below(2) == 0 ? word(random) : ""));
                        },
                    .answer = to_byte(Opcode::OP_SEARCH_RESULTS)});
}

Result run_login(const Options& options) {
    Result result;
    Swarm holders(options);
    hold_files(holders, options);
    Swarm swarm(options);
    const Dialect& dialect = swarm.dialect();
    const Bytes hello = dialect.is_vorrim() ? login(0) : Bytes();
    const std::vector<Bytes> requests = fetches(options);
    Random random(options.seed);
    const auto begin_round = [&](Peer& peer) {
        peer.asked.push_back(swarm.now());
        peer.queue(dialect.is_vorrim() ? hello : requests[random.below(requests.size())]);
        static_cast<void>(peer.flush());
    };
    for (std::uint32_t i = 0; i < options.connections; ++i)
        begin_round(swarm.peer(swarm.add()));
    std::vector<std::size_t> finished;
    Meter meter(options, result);
    while (meter.running(Clock::now())) {
        swarm.turn(100, [&](std::size_t index, const Frame& frame) {
            Peer& peer = swarm.peer(index);
            if (dialect.is_vorrim() && frame.code == to_byte(Opcode::OP_ID_ASSIGNED)) {
                peer.queue(requests[random.below(requests.size())]);
                static_cast<void>(peer.flush());
            } else if (frame.code == dialect.fetched) {
                meter.answered(peer.asked.front(), swarm.now());
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
    return result;
}

Result run_room(const Options& options) {
    must_have_room(options);
    Result result;
    Swarm swarm(options);
    Behaviour joining = greeting(swarm.dialect());
    joining.greet = [frame = login(0), join = join_room(kFirstRoom)](Peer& peer) {
        peer.queue(frame);
        peer.queue(join);
    };
    joining.greeted = to_byte(Opcode::OP_ROOM_MEMBERS);
    swarm.must_open(options.connections, joining);
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
            swarm.turn(1000, [&](std::size_t, const Frame& frame) {
                if (frame.code == to_byte(Opcode::OP_ROOM_TEXT)) ++heard;
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
    const ServerProcess server(options.server_pid);
    const std::uint64_t before = server.resident_bytes();
    const auto begin = Clock::now();
    Behaviour arriving = greeting(swarm.dialect());
    // A client of another server asks once, so that both have what a conversation needs.
    if (!swarm.dialect().is_vorrim() && swarm.dialect().fetch != nullptr) {
        arriving = {.greet = [frame = swarm.dialect().fetch(options.seed, 0)](
                                 Peer& peer) { peer.queue(frame); },
                    .greeted = swarm.dialect().fetched};
    }
    swarm.must_open(options.connections, arriving);
    result.notes.push_back(
        "all let in after " +
        std::to_string(std::chrono::duration<double>(Clock::now() - begin).count()) + " s");
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                        std::chrono::duration<double>(options.seconds));
    while (Clock::now() < end) {
        swarm.turn(1000, [](std::size_t, const Frame&) {});
    }
    result.resident_bytes = server.resident_bytes() - before;
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
    swarm.must_open(1, greeting(swarm.dialect()));  // peer 0 asks meanwhile
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
        swarm.turn(1, [&](std::size_t index, const Frame& frame) {
            Peer& peer = swarm.peer(index);
            if (peer.asked.empty()) return;
            const auto waited =
                static_cast<std::uint64_t>((Clock::now() - peer.asked.front()).count());
            if (index == 0 && frame.code == asking.answer) {
                result.probe.record(waited);
                peer.asked.pop_front();
            } else if (index != 0 && frame.code == to_byte(Opcode::OP_ID_ASSIGNED)) {
                result.latency.record(waited);
                peer.asked.pop_front();
                ++let_in;
                // The highest byte of an identifier tells a low one.
                if (frame.rest[3] != std::byte{0}) ++result.errors;
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
