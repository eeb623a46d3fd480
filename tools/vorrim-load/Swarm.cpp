#include "Swarm.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <stdexcept>
#include <sys/epoll.h>
#include <unistd.h>

#include "Meter.h"
#include "meta/Opcodes.h"

namespace vorrim::load {

namespace {

constexpr std::size_t kConnectsUnderWay = 256;
constexpr std::size_t kRoom = 64 * 1024;
constexpr std::chrono::seconds kOpenLimit{120};
constexpr std::chrono::seconds kLastAnswers{10};

// Peer i calls from 127.(1 + i / 65536).x.y, so that every one has an address of its own.
std::uint32_t source_of(std::size_t index) {
    const auto i = static_cast<std::uint32_t>(index + 1);
    return htonl(0x7F010000U + ((i >> 16U) << 16U) + (i & 0xFFFFU));
}

}  // namespace

Behaviour greeting(const Dialect& dialect) {
    if (!dialect.is_vorrim()) return {};
    return {.greet = [frame = login(0)](Peer& peer) { peer.queue(frame); },
            .greeted = to_byte(Opcode::OP_ID_ASSIGNED)};
}

std::vector<Bytes> fetches(const Options& options) {
    const Dialect& dialect = dialect_of(options.speak);
    // Far more than caches hold; all of ten million would be a memory of their own.
    constexpr std::uint64_t kMost = 1'000'000;
    const std::uint64_t step = std::max<std::uint64_t>(1, options.files / kMost);
    std::vector<Bytes> all;
    for (std::uint64_t file = 0; file < options.files; file += step)
        all.push_back(dialect.fetch(options.seed, file));
    return all;
}

Target target_of(const Options& options) {
    in_addr address{};
    if (::inet_aton(options.host.c_str(), &address) == 0) {
        throw std::runtime_error("the host must be a dotted address: " + options.host);
    }
    return {address.s_addr, options.port};
}

Swarm::Swarm(const Options& options)
    : options_(options),
      dialect_(dialect_of(options.speak)),
      target_(target_of(options)),
      epoll_(::epoll_create1(EPOLL_CLOEXEC)),
      now_(Clock::now()),
      room_(kRoom) {}

Swarm::~Swarm() {
    ::close(epoll_);
}

void Swarm::watch(std::size_t index) {
    epoll_event event{};
    event.events = EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLET;
    event.data.u64 = index;
    ::epoll_ctl(epoll_, EPOLL_CTL_ADD, peers_[index]->handle(), &event);
}

void Swarm::start(std::size_t index) {
    if (!peers_[index]->connect(target_, options_.distinct ? source_of(index) : 0)) {
        throw std::runtime_error("cannot connect to " + options_.host + ":" +
                                 std::to_string(options_.port));
    }
    watch(index);
}

std::size_t Swarm::add() {
    peers_.push_back(std::make_unique<Peer>());
    start(peers_.size() - 1);
    return peers_.size() - 1;
}

void Swarm::reconnect(std::size_t index) {
    peers_[index]->abort();
    start(index);
}

void Swarm::lose(std::size_t index) {
    ++lost_;
    peers_[index]->abort();
}

void Swarm::turn(int limit_ms, const OnFrame& on_frame) {
    std::array<epoll_event, 512> events{};
    const int count = ::epoll_wait(epoll_, events.data(), events.size(), limit_ms);
    now_ = Clock::now();
    for (int i = 0; i < count; ++i) {
        const std::size_t index = events[static_cast<std::size_t>(i)].data.u64;
        Peer& peer = *peers_[index];
        if (peer.handle() < 0) continue;
        const bool alive =
            peer.receive(room_, dialect_, [&](const Frame& frame) { on_frame(index, frame); });
        if (!alive || !peer.flush()) lose(index);
    }
}

std::size_t Swarm::open(std::size_t count, const Behaviour& behaviour, std::chrono::seconds limit) {
    const auto end = Clock::now() + limit;
    std::size_t greeted = 0;
    const std::size_t first = peers_.size();
    while (greeted + lost_ < count && Clock::now() < end) {
        while (peers_.size() - first < count &&
               peers_.size() - first - greeted < kConnectsUnderWay) {
            Peer& peer = *peers_[add()];
            if (behaviour.greet) behaviour.greet(peer);
            static_cast<void>(peer.flush());
            if (behaviour.greeted == 0) ++greeted;
        }
        turn(10, [&](std::size_t, const Frame& frame) {
            if (frame.code == behaviour.greeted) ++greeted;
        });
    }
    return greeted;
}

void Swarm::must_open(std::size_t count, const Behaviour& behaviour) {
    const std::size_t opened = open(count, behaviour, kOpenLimit);
    if (opened != count) {
        throw std::runtime_error("only " + std::to_string(opened) + " of " + std::to_string(count) +
                                 " connections were let in");
    }
}

void Swarm::ask(const Behaviour& behaviour, Result& result) {
    std::uint64_t open = 0;
    const auto ask_one = [&](Peer& peer) {
        behaviour.ask(peer);
        peer.asked.push_back(now_);
        ++open;
    };
    now_ = Clock::now();
    const auto begin = now_;
    Meter meter(options_, result);
    for (const auto& peer : peers_) {
        for (std::uint32_t i = 0; i < options_.depth; ++i)
            ask_one(*peer);
        static_cast<void>(peer->flush());
        peer->step = 0;
    }
    bool running = meter.running(now_);
    const auto give_up = begin +
                         std::chrono::duration_cast<Clock::duration>(
                             std::chrono::duration<double>(options_.seconds)) +
                         kLastAnswers;
    while (open > 0 && now_ < give_up) {
        turn(100, [&](std::size_t index, const Frame& frame) {
            Peer& peer = *peers_[index];
            if (frame.code != behaviour.answer || peer.asked.empty()) return;
            if (++peer.step < behaviour.answers_each) return;
            peer.step = 0;
            meter.answered(peer.asked.front(), now_);
            peer.asked.pop_front();
            --open;
            if (running) ask_one(peer);
        });
        running = meter.running(now_);
    }
    result.errors += open + lost_;
}

Result ask_all(const Options& options, const Behaviour& behaviour) {
    Result result;
    Swarm swarm(options);
    swarm.must_open(options.connections, greeting(swarm.dialect()));
    swarm.ask(behaviour, result);
    return result;
}

}  // namespace vorrim::load
