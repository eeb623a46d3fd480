#include "app/LimitSettings.h"

#include <algorithm>
#include <limits>

namespace vorrim {

namespace {

// Of one organisation, one link or one machine: nobody reaches them from outside.
constexpr std::string_view kPrivateNetworks =
    "10.0.0.0/8 172.16.0.0/12 192.168.0.0/16 100.64.0.0/10 169.254.0.0/16 127.0.0.0/8 0.0.0.0/8";

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

void LimitSettings::apply_to(Limits& limits, Random& random) const {
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
    limits.reachability.set_limits(at_least_0<std::uint32_t>(reachTests),
                                   at_least_0<std::uint32_t>(reachTestsPerAddress));
    limits.reach_lowest_port = at_least_0<std::uint16_t>(reachMinPort);
    if (!reachPrivate) limits.unreachable.add_all(kPrivateNetworks, [](std::string_view) {});
    limits.datagrams.set_limits({.bytes_a_second = at_least_0<std::uint32_t>(datagramBytes),
                                 .bytes_at_once = at_least_0<std::uint32_t>(datagramBurst),
                                 .statuses_a_second = at_least_0<std::uint32_t>(datagramStatus),
                                 .only_counts = datagramCountOnly},
                                random.next_u64());
}

std::uint32_t LimitSettings::most_files() const noexcept {
    return at_least_0<std::uint32_t>(clientFiles);
}

RecordLimits LimitSettings::record_limits() const noexcept {
    return {.bytes = at_least_0<std::uint32_t>(recordBytes),
            .tags = at_least_0<std::uint32_t>(recordTags),
            .tag_name = at_least_0<std::uint32_t>(tagNameBytes),
            .tag_value = at_least_0<std::uint32_t>(tagValueBytes)};
}

}  // namespace vorrim
