#include "net/socketPool.h"

#include <algorithm>
#include <span>
#include <thread>

namespace vorrim {

namespace {

// What is ready is gathered by one wait for each share, and the fewer take part, the more each wait
// brings: a hundred connections cost a fifth less with one worker than with two. So many more tasks
// than the others the adding worker's share may have.
constexpr std::size_t kAhead = 128;

// No share's worker ever waits for anything but its readiness set, so that those beyond the
// processors would only divide what is ready further.
std::size_t useful_shares() {
    return std::max(std::thread::hardware_concurrency(), 1u);
}

}  // namespace

socketPool::socketPool(kx_net_protocol& net, const Clock& clock)
    : net_(net),
      clock_(clock),
      no_limits_(std::make_unique<Limits>()),
      limits_(*no_limits_),
      useful_shares_(useful_shares()) {}

socketPool::socketPool(kx_net_protocol& net, const Clock& clock, Limits& limits)
    : net_(net), clock_(clock), limits_(limits), useful_shares_(useful_shares()) {}

socketPool::~socketPool() {
    delete_all();
}

PoolShare& socketPool::add_share() {
    shares_.push_back(std::make_unique<PoolShare>(*this, net_.create_socket_set(), clock_));
    return *shares_.back();
}

void socketPool::add(std::unique_ptr<Task> task) {
    if (!task) return;
    if (shares_.empty()) {
        const kx_guard hold(unserved_lock_);
        unserved_.push_back(std::move(task));
        return;
    }
    const auto shares = std::span(shares_).first(std::min(shares_.size(), useful_shares_));
    PoolShare* least = std::ranges::min_element(shares, {}, [](const auto& share) {
                           return share->load();
                       })->get();
    PoolShare* const own = PoolShare::current();
    if (own != nullptr && own->load() <= least->load() + kAhead) least = own;
    least->add(std::move(task));
}

void socketPool::delete_all() {
    for (const auto& share : shares_)
        share->delete_all();
    std::vector<std::unique_ptr<Task>> unserved;
    {
        const kx_guard hold(unserved_lock_);
        unserved.swap(unserved_);
    }
}

}  // namespace vorrim
