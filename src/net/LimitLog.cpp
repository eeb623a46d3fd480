#include "net/LimitLog.h"

#include "base/Output.h"

namespace vorrim {

namespace {

// What has happened, in the order of Limit.
constexpr std::array<const char*, kLimits> kWhat{
    "connections closed for a packet that was too large",
    "connections closed for saying nothing",
    "connections closed for a packet that was never finished",
    "connections closed for not reading what others sent",
    "connections closed for not reading for too long",
    "connections refused, too many from one address",
    "connections refused, too fast from one address",
    "connections refused, too many of administrators",
    "logins slowed down",
    "offers slowed down",
    "searches slowed down",
    "texts slowed down",
    "call-backs slowed down",
    "connections closed for going on too fast",
    "files refused, too many of one client",
    "files refused, their records too large",
    "logins refused, their records too large",
    "reachability tests that never got their turn",
    "reachability tests not made, the port or network is forbidden",
    "datagrams not answered, too many bytes to one place",
    "status datagrams not answered, too many from one place",
    "servers not taken into the list, there is no room",
};

}  // namespace

void LimitLog::report(std::optional<TimePoint> now) {
    for (std::size_t i = 0; i < kLimits; ++i) {
        Said& said = said_[i];
        const std::uint64_t count = counts_[i].load(std::memory_order_relaxed);
        if (count == said.count) continue;
        if (now && said.when && *now - *said.when < kPause) continue;
        current_output().printLine("Limit: %s: %llu (%llu since the start)", kWhat[i],
                                   static_cast<unsigned long long>(count - said.count),
                                   static_cast<unsigned long long>(count));
        said = {count, now};
    }
}

}  // namespace vorrim
