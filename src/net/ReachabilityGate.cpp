#include "net/ReachabilityGate.h"

#include "net/ReachabilityTest.h"

namespace vorrim {

void ReachabilityGate::set_limits(std::uint32_t altogether, std::uint32_t per_address) noexcept {
    altogether_ = altogether;
    per_address_ = per_address;
}

bool ReachabilityGate::has_room(std::uint32_t address) const {
    if (altogether_ != 0 && inside_.size() >= altogether_) return false;
    if (per_address_ == 0) return true;
    const auto tests = tests_of_.find(address);
    return tests == tests_of_.end() || tests->second < per_address_;
}

void ReachabilityGate::let_in(const ReachabilityTest& test, std::uint32_t address) {
    inside_.emplace(&test, address);
    ++tests_of_[address];
}

bool ReachabilityGate::enter(ReachabilityTest& test, std::uint32_t address) {
    const kx_guard hold(lock_);
    if (has_room(address)) {
        let_in(test, address);
        return true;
    }
    places_.emplace(&test, waiting_.insert(waiting_.end(), Waiter{&test, address}));
    return false;
}

bool ReachabilityGate::has_entered(const ReachabilityTest& test) const {
    const kx_guard hold(lock_);
    return inside_.contains(&test);
}

void ReachabilityGate::leave(const ReachabilityTest& test, std::uint32_t address) {
    const kx_guard hold(lock_);
    if (const auto place = places_.find(&test); place != places_.end()) {
        waiting_.erase(place->second);
        places_.erase(place);
        return;
    }
    if (inside_.erase(&test) == 0) return;
    if (const auto tests = tests_of_.find(address); --tests->second == 0) tests_of_.erase(tests);
    auto next = waiting_.begin();
    while (next != waiting_.end() && !has_room(next->address))
        ++next;
    if (next == waiting_.end()) return;
    ReachabilityTest* const admitted = next->test;
    let_in(*admitted, next->address);
    places_.erase(admitted);
    waiting_.erase(next);
    admitted->post();
}

}  // namespace vorrim
