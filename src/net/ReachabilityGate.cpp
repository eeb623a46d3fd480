#include "net/ReachabilityGate.h"

#include <algorithm>
#include <new>

#include "net/ReachabilityTest.h"

namespace vorrim {

void ReachabilityGate::set_limits(std::uint32_t altogether, std::uint32_t per_address) noexcept {
    altogether_ = altogether;
    per_address_ = per_address;
}

bool ReachabilityGate::has_room(std::uint32_t address) const {
    if (altogether_ != 0 && inside_.size() >= altogether_) return false;
    return per_address_ == 0 || crowds_.find(address)->second.inside < per_address_;
}

void ReachabilityGate::let_in(Visitors& from, Visitors::iterator visitor) noexcept {
    ++crowds_.find(visitor->address)->second.inside;
    visitor->inside = true;
    inside_.splice(inside_.end(), from, visitor);
}

bool ReachabilityGate::enter(ReachabilityTest& test, std::uint32_t address) {
    const kx_guard hold(lock_);
    // All memory is taken here; one that finds none has not come. The crowd may be one of nobody
    // then, until somebody else of it leaves.
    Visitors arrival{{&test, address}};
    Crowd& crowd = crowds_[address];
    places_.emplace(&test, arrival.begin());
    ++crowd.altogether;
    if (has_room(address)) {
        let_in(arrival, arrival.begin());
        return true;
    }
    waiting_.splice(waiting_.end(), arrival);
    return false;
}

bool ReachabilityGate::has_entered(const ReachabilityTest& test) const {
    const kx_guard hold(lock_);
    const auto place = places_.find(&test);
    return place != places_.end() && place->second->inside;
}

void ReachabilityGate::leave(const ReachabilityTest& test) noexcept {
    const kx_guard hold(lock_);
    const auto place = places_.find(&test);
    if (place == places_.end()) return;
    const Visitors::iterator visitor = place->second;
    places_.erase(place);
    const bool was_inside = visitor->inside;
    const auto crowd = crowds_.find(visitor->address);
    if (was_inside) --crowd->second.inside;
    if (--crowd->second.altogether == 0) crowds_.erase(crowd);
    (was_inside ? inside_ : waiting_).erase(visitor);
    if (was_inside) admit_next();
}

void ReachabilityGate::admit_next() noexcept {
    auto next = waiting_.begin();
    while (next != waiting_.end() && !has_room(next->address))
        ++next;
    if (next == waiting_.end()) return;
    let_in(waiting_, next);
    try {
        next->test->post();
    } catch (const std::bad_alloc&) {
        // It learns of its turn no more, and its deadline ends it.
    }
}

}  // namespace vorrim
