#include "Swarm.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <stdexcept>
#include <sys/epoll.h>
#include <unistd.h>

namespace vorrim::load {

namespace {

constexpr std::size_t kConnectsUnderWay = 256;
constexpr std::chrono::seconds kLastAnswers{10};

// Peer i calls from 127.(1 + i / 65536).x.y, so that every one has an address of its own.
std::uint32_t source_of(std::size_t index) {
    const auto i = static_cast<std::uint32_t>(index + 1);
    return htonl(0x7F010000U + ((i >> 16U) << 16U) + (i & 0xFFFFU));
}

}  // namespace

Target target_of(const Options& options) {
    in_addr address{};
    if (::inet_aton(options.host.c_str(), &address) == 0) {
        throw std::runtime_error("the host must be a dotted address: " + options.host);
    }
    return {address.s_addr, options.port};
}

Swarm::Swarm(const Options& options)
    : options_(options), target_(target_of(options)), epoll_(::epoll_create1(EPOLL_CLOEXEC)) {}

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

void Swarm::turn(
    int limit_ms,
    const std::function<void(std::size_t, std::uint8_t, std::span<const std::byte>)>& on_frame) {
    std::array<epoll_event, 512> events{};
    const int count = ::epoll_wait(epoll_, events.data(), events.size(), limit_ms);
    for (int i = 0; i < count; ++i) {
        const std::size_t index = events[static_cast<std::size_t>(i)].data.u64;
        Peer& peer = *peers_[index];
        if (peer.handle() < 0) continue;
        const bool alive = peer.receive([&](std::uint8_t opcode, std::span<const std::byte> rest) {
            on_frame(index, opcode, rest);
        });
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
        turn(10, [&](std::size_t, std::uint8_t opcode, std::span<const std::byte>) {
            if (opcode == behaviour.greeted) ++greeted;
        });
    }
    return greeted;
}

void Swarm::ask(const Behaviour& behaviour, std::uint32_t depth, double seconds, Result& result) {
    const auto begin = Clock::now();
    const auto end =
        begin + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    std::uint64_t open = 0;
    const auto ask_one = [&](Peer& peer) {
        behaviour.ask(peer);
        peer.asked.push_back(Clock::now());
        ++open;
    };
    for (const auto& peer : peers_) {
        for (std::uint32_t i = 0; i < depth; ++i)
            ask_one(*peer);
        static_cast<void>(peer->flush());
    }
    auto now = Clock::now();
    while (open > 0 && now < end + kLastAnswers) {
        turn(100, [&](std::size_t index, std::uint8_t opcode, std::span<const std::byte>) {
            Peer& peer = *peers_[index];
            if (opcode != behaviour.answer || peer.asked.empty()) return;
            result.latency.record(static_cast<std::uint64_t>((now - peer.asked.front()).count()));
            peer.asked.pop_front();
            --open;
            ++result.answers;
            if (now < end) ask_one(peer);
        });
        now = Clock::now();
    }
    result.errors += open + lost_;
    result.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
}

}  // namespace vorrim::load
