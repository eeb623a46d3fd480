#include "net/AddressGate.h"

#include <algorithm>
#include <limits>

namespace vorrim {

namespace {

constexpr std::uint64_t kMinute = 60'000;  // ms

// Wraps after seven weeks; then an address may wait a little longer for its next connection.
std::uint32_t milliseconds(AddressGate::TimePoint now) noexcept {
    return static_cast<std::uint32_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count());
}

}  // namespace

// Neighbouring addresses are in different parts (Knuth's multiplicative hash).
AddressGate::Part& AddressGate::part_of(std::uint32_t address) {
    constexpr std::uint32_t kGolden = 2654435769U;  // 2^32 divided by the golden ratio
    return parts_[address * kGolden >> (32 - kPartBits)];
}

void AddressGate::set_limits(std::uint32_t at_a_time, std::uint32_t a_minute) noexcept {
    at_a_time_ = at_a_time;
    a_minute_ = a_minute;
}

void AddressGate::refill(Visitor& visitor, std::uint32_t now) const noexcept {
    const std::uint32_t passed = now - visitor.allowance_of;
    // Doors of two workers each look at the time when their own turn began.
    if (passed > std::numeric_limits<std::uint32_t>::max() - kMinute) return;
    const std::uint64_t earned = passed * std::uint64_t{a_minute_} / kMinute;
    if (earned == 0) return;
    visitor.allowance =
        static_cast<std::uint32_t>(std::min<std::uint64_t>(visitor.allowance + earned, a_minute_));
    visitor.allowance_of = now;
}

AddressGate::Answer AddressGate::admit(std::uint32_t address, TimePoint time) {
    const std::uint32_t now = milliseconds(time);
    const kx_guard hold(lock_);
    Part& part = part_of(address);
    if (part.visitors.size() >= part.tidy_at) forget_idle(part, now);
    Visitor& visitor = part.visitors.try_emplace(address, Visitor{0, a_minute_, now}).first->second;
    if (at_a_time_ != 0 && visitor.connections >= at_a_time_) return Answer::too_many;
    if (a_minute_ != 0) {
        refill(visitor, now);
        if (visitor.allowance == 0) return Answer::too_fast;
        --visitor.allowance;
    }
    ++visitor.connections;
    return Answer::welcome;
}

void AddressGate::leave(std::uint32_t address) {
    const kx_guard hold(lock_);
    auto& visitors = part_of(address).visitors;
    const auto visitor = visitors.find(address);
    if (visitor == visitors.end() || visitor->second.connections == 0) return;
    if (--visitor->second.connections == 0 && a_minute_ == 0) visitors.erase(visitor);
}

void AddressGate::forget_idle(Part& part, std::uint32_t now) const {
    auto& visitors = part.visitors;
    for (auto& [address, visitor] : visitors)
        refill(visitor, now);
    std::erase_if(visitors, [&](const auto& entry) {
        return entry.second.connections == 0 && entry.second.allowance >= a_minute_;
    });
    const auto idle = [](const auto& entry) { return entry.second.connections == 0; };
    // Too many that knock once and never come back: those are not worth remembering.
    if (std::count_if(visitors.begin(), visitors.end(), idle) >
        static_cast<std::ptrdiff_t>(kMostRemembered >> kPartBits))
        std::erase_if(visitors, idle);
    part.tidy_at = std::max(kFirstTidy, 2 * visitors.size());
}

std::size_t AddressGate::remembered() const {
    const kx_guard hold(lock_);
    std::size_t sum = 0;
    for (const Part& part : parts_)
        sum += part.visitors.size();
    return sum;
}

}  // namespace vorrim
