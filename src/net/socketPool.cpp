#include "net/socketPool.h"

namespace vorrim {

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
    // Among equals the caller's own share comes first: nothing has to be woken then.
    PoolShare* least = PoolShare::current();
    for (const auto& share : shares_) {
        if (least == nullptr || share->load() < least->load()) least = share.get();
    }
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
