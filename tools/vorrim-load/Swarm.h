#pragma once
// Many connections on one epoll: connects them, logs them in, keeps their requests open, counts.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "Peer.h"
#include "Scenario.h"
#include "base/Random.h"

namespace vorrim::load {

// What a swarm's peers do. Each request of `ask` is answered by one frame with the code `answer`.
struct Behaviour {
    // Called when the connection stands; queues the first bytes. Not called for unset.
    std::function<void(Peer&)> greet = {};
    // The frame that ends the greeting; 0: nothing to wait for.
    std::uint8_t greeted = 0;
    // Queues one request.
    std::function<void(Peer&)> ask = {};
    std::uint8_t answer = 0;
    // Frames that answer one request together.
    std::uint64_t answers_each = 1;
};

using OnFrame = std::function<void(std::size_t peer, const Frame& frame)>;

class Swarm final {
public:
    explicit Swarm(const Options& options);
    ~Swarm();
    Swarm(const Swarm&) = delete;
    Swarm& operator=(const Swarm&) = delete;

    // Connects `count` peers, a few hundred at a time, and waits until all are greeted or `limit`
    // is over. Returns how many are.
    std::size_t open(std::size_t count, const Behaviour& behaviour, std::chrono::seconds limit);

    // The same, but throws std::runtime_error unless all are.
    void must_open(std::size_t count, const Behaviour& behaviour);

    // Keeps `depth` requests of every peer open for the time of the options, then waits for the
    // last answers.
    void ask(const Behaviour& behaviour, Result& result);

    // Takes what is ready, waiting at most `limit_ms`.
    void turn(int limit_ms, const OnFrame& on_frame);
    // When the bytes being handled came.
    [[nodiscard]] Clock::time_point now() const noexcept { return now_; }

    [[nodiscard]] Peer& peer(std::size_t index) { return *peers_[index]; }
    [[nodiscard]] std::size_t size() const noexcept { return peers_.size(); }
    [[nodiscard]] std::uint64_t lost() const noexcept { return lost_; }

    // Starts one more connection; its number.
    std::size_t add();
    // Resets the connection and starts it anew; not from within on_frame.
    void reconnect(std::size_t index);
    void lose(std::size_t index);

    [[nodiscard]] const Dialect& dialect() const noexcept { return dialect_; }

private:
    void watch(std::size_t index);
    void start(std::size_t index);

    const Options& options_;
    const Dialect& dialect_;
    Target target_;
    int epoll_;
    Clock::time_point now_;
    std::vector<std::byte> room_;  // for the bytes of one receive
    std::vector<std::unique_ptr<Peer>> peers_;
    std::uint64_t lost_ = 0;
};

// How a client begins: it logs in where that is the custom.
[[nodiscard]] Behaviour greeting(const Dialect& dialect);

// Connects, greets and keeps the requests of all connections of the options open.
[[nodiscard]] Result ask_all(const Options& options, const Behaviour& behaviour);

// The questions for the files of the options, or for a million spread over them, made beforehand.
[[nodiscard]] std::vector<Bytes> fetches(const Options& options);

// Logs `options.sources` clients in and publishes every file from each; they hold the files as long
// as the swarm lives. With another dialect one connection stores a value as long as those sources
// for every file. Throws std::runtime_error when the server does not take them.
void hold_files(Swarm& holders, const Options& options);

}  // namespace vorrim::load
