#pragma once
// One connection of the load generator: what it still has to send, what has come, when its open
// requests left.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <vector>

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
    // Closes with a reset, so that a finished port is free at once.
    void abort();

    void queue(std::span<const std::byte> bytes);
    // Sends what is queued. False when the connection is dead.
    [[nodiscard]] bool flush();

    // Receives and calls on_frame(opcode, payload behind the opcode) for each whole frame. False
    // when the connection is dead.
    template <class OnFrame>
    [[nodiscard]] bool receive(OnFrame on_frame);

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
bool Peer::receive(OnFrame on_frame) {
    constexpr std::size_t kRoom = 64 * 1024;
    constexpr std::size_t kHeader = 5;
    for (;;) {
        const std::size_t had = in_.size();
        in_.resize(had + kRoom);
        const long got = take(std::span(in_).subspan(had));
        in_.resize(had + static_cast<std::size_t>(got > 0 ? got : 0));
        std::size_t at = 0;
        while (in_.size() - at >= kHeader) {
            std::size_t length = 0;
            for (std::size_t i = 4; i >= 1; --i) {
                length = length << 8U | std::to_integer<std::size_t>(in_[at + i]);
            }
            if (in_.size() - at < kHeader + length) break;
            const std::span<const std::byte> payload =
                std::span<const std::byte>(in_).subspan(at + kHeader, length);
            on_frame(std::to_integer<std::uint8_t>(payload[0]), payload.subspan(1));
            at += kHeader + length;
        }
        in_.erase(in_.begin(), in_.begin() + static_cast<std::ptrdiff_t>(at));
        if (got < 0) return false;
        if (static_cast<std::size_t>(got) < kRoom) return true;
    }
}

}  // namespace vorrim::load
