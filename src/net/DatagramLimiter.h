#pragma once
// How much the server sends to any one place by datagram.
//
// A datagram's sender may be forged, so what limits the answers must not be something that a flood
// of senders can fill: fixed tables, a cell for every prefix of 32, 24, 20 and 16 bits (the longer
// ones share cells, by a hash that nobody outside knows), each with what was sent there lately:
//
//     address ──► /32 ─► cell ┐
//             ──► /24 ─► cell ├─ all below their bounds? ── yes ──► add to all, send
//             ──► /20 ─► cell │
//             ──► /16 ─► cell ┘      a cell empties at its rate
//
// An address may get so many bytes a second and a burst at once, a network of 256 addresses 16
// times as much, and so on: enough for the clients of a network, no use to somebody who forges.
// Status answers have a rate of their own and no part in the bytes.
//
// Threads: those of its datagram door.

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace vorrim {

// The decaying counters of one kind. Memory is taken with the first use, about 2 MiB.
class PlaceCounters final {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    // A rate of 0: no limit. `key` is what nobody outside knows.
    void set_limits(std::uint32_t a_second, std::uint32_t at_once, std::uint64_t key) noexcept;

    // Whether anything at all may go to `address`, in identifier form.
    [[nodiscard]] bool has_room(std::uint32_t address, TimePoint now);
    // Whether so much may go there; then it is counted.
    [[nodiscard]] bool take(std::uint32_t address, std::uint32_t amount, TimePoint now);

private:
    struct Prefix {
        unsigned bits;
        float allowance;  // of a prefix, in those of an address
    };
    static constexpr std::array<Prefix, 4> kPrefixes{{{32, 1}, {24, 16}, {20, 64}, {16, 256}}};
    static constexpr std::size_t kCells = 65'536;  // of a prefix length

    struct Cell {
        float level = 0;
        std::uint32_t level_of = 0;  // the moment for which that is so, in milliseconds
    };
    using Cells = std::array<Cell*, kPrefixes.size()>;

    [[nodiscard]] Cells cells_of(std::uint32_t address, TimePoint now);
    [[nodiscard]] bool fits(const Cells& cells, float amount) const noexcept;

    float a_second_ = 0;
    float at_once_ = 0;
    std::uint64_t key_ = 0;
    std::vector<Cell> cells_;
};

class DatagramLimiter final {
public:
    using TimePoint = PlaceCounters::TimePoint;

    struct Settings {
        std::uint32_t bytes_a_second = 0;
        std::uint32_t bytes_at_once = 0;
        std::uint32_t statuses_a_second = 0;
        bool only_counts = false;  // nothing is withheld
    };

    DatagramLimiter() = default;
    DatagramLimiter(const DatagramLimiter&) = delete;
    DatagramLimiter& operator=(const DatagramLimiter&) = delete;

    void set_limits(const Settings& settings, std::uint64_t key) noexcept;
    [[nodiscard]] bool only_counts() const noexcept { return only_counts_; }

    [[nodiscard]] PlaceCounters& bytes() noexcept { return bytes_; }
    [[nodiscard]] PlaceCounters& statuses() noexcept { return statuses_; }

private:
    bool only_counts_ = false;
    PlaceCounters bytes_;
    PlaceCounters statuses_;
};

}  // namespace vorrim
