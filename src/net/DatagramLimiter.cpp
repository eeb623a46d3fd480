#include "net/DatagramLimiter.h"

#include <algorithm>

namespace vorrim {

namespace {

constexpr float kSecond = 1000;             // ms
constexpr std::uint32_t kStatusBurst = 10;  // seconds' worth of status answers at once

// Wraps after seven weeks, when a cell that was left full may look full for a moment more.
std::uint32_t milliseconds(PlaceCounters::TimePoint now) noexcept {
    return static_cast<std::uint32_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count());
}

std::uint64_t mix(std::uint64_t value) noexcept {
    value ^= value >> 32U;
    value *= 0xE9846AF9B1A615DULL;  // multiplier of the mixer by J. Maiga
    value ^= value >> 32U;
    value *= 0xE9846AF9B1A615DULL;
    return value ^ (value >> 28U);
}

}  // namespace

void PlaceCounters::set_limits(std::uint32_t a_second, std::uint32_t at_once,
                               std::uint64_t key) noexcept {
    a_second_ = static_cast<float>(a_second);
    at_once_ = static_cast<float>(std::max(a_second, at_once));
    key_ = key;
}

PlaceCounters::Cells PlaceCounters::cells_of(std::uint32_t address, TimePoint time) {
    if (cells_.empty()) cells_.resize(kPrefixes.size() * kCells);
    const std::uint32_t now = milliseconds(time);
    const std::uint32_t in_order = __builtin_bswap32(address);
    Cells cells{};
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const auto [bits, allowance] = kPrefixes[i];
        const std::uint32_t prefix = in_order >> (32 - bits);
        // There are as many cells as prefixes of 16 bits.
        const std::size_t place =
            std::size_t{1} << bits <= kCells ? prefix : mix(prefix ^ key_) % kCells;
        Cell& cell = cells_[i * kCells + place];
        const float emptied =
            static_cast<float>(now - cell.level_of) * (a_second_ * allowance / kSecond);
        cell.level = std::max(cell.level - emptied, 0.0F);
        cell.level_of = now;
        cells[i] = &cell;
    }
    return cells;
}

bool PlaceCounters::fits(const Cells& cells, float amount) const noexcept {
    for (std::size_t i = 0; i < cells.size(); ++i)
        if (cells[i]->level + amount > at_once_ * kPrefixes[i].allowance) return false;
    return true;
}

bool PlaceCounters::has_room(std::uint32_t address, TimePoint now) {
    return a_second_ == 0 || fits(cells_of(address, now), 1);
}

bool PlaceCounters::take(std::uint32_t address, std::uint32_t amount, TimePoint now) {
    if (a_second_ == 0) return true;
    const Cells cells = cells_of(address, now);
    if (!fits(cells, static_cast<float>(amount))) return false;
    for (Cell* const cell : cells)
        cell->level += static_cast<float>(amount);
    return true;
}

void DatagramLimiter::set_limits(const Settings& settings, std::uint64_t key) noexcept {
    bytes_.set_limits(settings.bytes_a_second, settings.bytes_at_once, key);
    statuses_.set_limits(settings.statuses_a_second, kStatusBurst * settings.statuses_a_second,
                         key);
    only_counts_ = settings.only_counts;
}

}  // namespace vorrim
