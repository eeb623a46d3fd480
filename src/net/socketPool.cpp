#include "net/socketPool.h"

namespace vorrim {

namespace {

constexpr std::size_t kAhead = 16;  // tasks

}  // namespace

socketPool::socketPool(kx_net_protocol& net, const Clock& clock)
    : net_(net), clock_(clock), no_limits_(std::make_unique<Limits>()), limits_(*no_limits_) {}

socketPool::socketPool(kx_net_protocol& net, const Clock& clock, Limits& limits)
    : net_(net), clock_(clock), limits_(limits) {}

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
    PoolShare* least = shares_.front().get();
    for (const auto& share : shares_) {
        if (share->load() < least->load()) least = share.get();
    }
    // The caller's own share may be a little ahead: waking another worker for a short visit costs
    // more than the visit.
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
