#pragma once
// One connection of the load generator: what it still has to send, what has come, when its open
// requests left.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <vector>

#include "Dialect.h"
#include "Requests.h"

namespace vorrim::load {

using Clock = std::chrono::steady_clock;

struct Target {
    std::uint32_t address;  // network order
    std::uint16_t port;
};

class Peer final {
public:
    Peer() = default;
    ~Peer();
    Peer(Peer&& other) noexcept;
    Peer& operator=(Peer&& other) noexcept;
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    // Starts a non-blocking connect; `source` (network order) binds the near end unless it is 0.
    [[nodiscard]] bool connect(const Target& target, std::uint32_t source);
    // Closes as programs do.
    void close();
    // Closes with a reset, so that a finished port is free at once.
    void abort();

    void queue(std::span<const std::byte> bytes);
    // Sends what is queued. False when the connection is dead.
    [[nodiscard]] bool flush();

    // Receives into `room`, which all peers may share, and calls on_frame(frame) for each whole
    // frame. False when the connection is dead.
    template <class OnFrame>
    [[nodiscard]] bool receive(std::span<std::byte> room, const Dialect& dialect, OnFrame on_frame);

    [[nodiscard]] int handle() const noexcept { return handle_; }

    std::deque<Clock::time_point> asked;  // open requests, oldest first
    std::uint64_t step = 0;               // where the scenario is with this peer

private:
    [[nodiscard]] long take(std::span<std::byte> room) const;

    int handle_ = -1;
    std::vector<std::byte> out_;
    std::size_t out_sent_ = 0;
    std::vector<std::byte> in_;
};

template <class OnFrame>
bool Peer::receive(std::span<std::byte> room, const Dialect& dialect, OnFrame on_frame) {
    for (;;) {
        const long got = take(room);
        if (got <= 0) return got == 0;
        std::span<const std::byte> rest = room.first(static_cast<std::size_t>(got));
        const bool had_some = !in_.empty();
        if (had_some) {
            in_.insert(in_.end(), rest.begin(), rest.end());
            rest = in_;
        }
        for (Frame frame = dialect.cut(rest); frame.size > 0; frame = dialect.cut(rest)) {
            on_frame(frame);
            rest = rest.subspan(frame.size);
        }
        if (had_some) {
            in_.erase(in_.begin(), in_.end() - static_cast<std::ptrdiff_t>(rest.size()));
        } else {
            in_.assign(rest.begin(), rest.end());
        }
        if (static_cast<std::size_t>(got) < room.size()) return true;
    }
}

}  // namespace vorrim::load
