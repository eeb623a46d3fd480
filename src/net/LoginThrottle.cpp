#include "net/LoginThrottle.h"

#include <algorithm>

#include "base/Output.h"
#include "meta/ClientId.h"

namespace vorrim {

namespace {

constexpr std::chrono::seconds kReportPause{60};

}  // namespace

LoginThrottle::Offender& LoginThrottle::offender(std::uint32_t address, TimePoint now) {
    const auto known = offenders_.find(address);
    if (known != offenders_.end()) {
        if (now - known->second.last_seen > kForgiveness) known->second = Offender{};
        return known->second;
    }
    if (offenders_.size() >= kMaxAddresses) {
        const auto by_age = [](const auto& a, const auto& b) {
            return a.second.last_seen < b.second.last_seen;
        };
        offenders_.erase(std::min_element(offenders_.begin(), offenders_.end(), by_age));
    }
    return offenders_[address];
}

// How many to report now, or 0.
unsigned LoginThrottle::count_slowed(TimePoint now) {
    ++slowed_;
    if (report_time_ && now - *report_time_ < kReportPause) return 0;
    report_time_ = now;
    const auto fresh = static_cast<unsigned>(slowed_ - reported_);
    reported_ = slowed_;
    return fresh;
}

std::optional<std::chrono::steady_clock::time_point> LoginThrottle::admit(std::uint32_t address) {
    std::optional<TimePoint> moment;
    unsigned to_report = 0;
    {
        const kx_guard hold(lock_);
        const TimePoint now = clock_.now();
        const auto known = offenders_.find(address);
        if (known == offenders_.end()) return now;
        Offender& from = offender(address, now);
        if (!from.slowed) return now;
        to_report = count_slowed(now);
        const std::chrono::seconds delay = std::clamp(from.delay * 2, kFirstDelay, kLongestDelay);
        const TimePoint wanted = std::max(now, from.last_seen) + delay;
        if (wanted - now <= kLongestWait) {
            from.delay = delay;
            from.last_seen = wanted;
            moment = wanted;
        }
    }
    if (to_report != 0) {
        current_output().printLine("Administrator logins slowed down: %u, the latest from %s",
                                   to_report, ipToText(address).c_str());
    }
    return moment;
}

void LoginThrottle::failed(std::uint32_t address) {
    const kx_guard hold(lock_);
    const TimePoint now = clock_.now();
    Offender& from = offender(address, now);
    from.failures[from.failure_count++ % kFreeFailures] = now;
    from.last_seen = std::max(from.last_seen, now);
    const TimePoint oldest = from.failures[from.failure_count % kFreeFailures];
    if (from.failure_count >= kFreeFailures && now - oldest <= kWindow) from.slowed = true;
}

void LoginThrottle::succeeded(std::uint32_t address) {
    const kx_guard hold(lock_);
    offenders_.erase(address);
}

std::uint64_t LoginThrottle::slowed() const {
    const kx_guard hold(lock_);
    return slowed_;
}

}  // namespace vorrim
