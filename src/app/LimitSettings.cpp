#include "app/LimitSettings.h"

#include <algorithm>
#include <limits>

namespace vorrim {

namespace {

// Below zero is off, as zero is.
template <class Number>
Number at_least_0(std::int32_t value) noexcept {
    constexpr auto kMost = std::numeric_limits<Number>::max();
    const auto positive = static_cast<std::uint32_t>(std::max(value, 0));
    return static_cast<Number>(std::min<std::uint64_t>(positive, kMost));
}

Limits::Seconds seconds(std::int32_t value) noexcept {
    return Limits::Seconds(std::max(value, 0));
}

}  // namespace

void LimitSettings::apply_to(Limits& limits) const {
    // What is no network has been said when the settings were read.
    limits.exempt.add_all(limitExempt, [](std::string_view) {});
    limits.strangers = true;
    limits.first_packet = seconds(firstPacketSeconds);
    limits.packet = seconds(packetSeconds);
    limits.stalled_send = seconds(unreadSeconds);
    limits.flood = seconds(floodSeconds);
    limits.addresses.set_limits(at_least_0<std::uint32_t>(addressConnections),
                                at_least_0<std::uint32_t>(addressConnects));
    const auto set_rate = [&](Request kind, std::int32_t rate) {
        limits.request_rates[static_cast<std::size_t>(kind)] = at_least_0<std::uint16_t>(rate);
    };
    set_rate(Request::login, loginRate);
    set_rate(Request::offer, offerRate);
    set_rate(Request::search, searchRate);
    set_rate(Request::text, textRate);
    set_rate(Request::callback, callbackRate);
}

}  // namespace vorrim
