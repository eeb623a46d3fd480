#include "net/Task.h"

#include "net/PoolShare.h"

namespace vorrim {

Task::Task(std::unique_ptr<kx_net_socket> socket, socketPool& pool)
    : pool_(pool), socket_(std::move(socket)) {}

Task::~Task() {
    // The derived destructors have left every table by now, so nobody can post any more.
    if (PoolShare* const owner = share_.load()) owner->forget(*this);
}

void Task::close() {
    closing_.store(true);
    post();
}

void Task::post() {
    if (PoolShare* const owner = share_.load()) owner->post(*this);
}

void Task::setDeadline(TimePoint deadline) {
    if (PoolShare* const owner = share_.load()) owner->setDeadline(*this, deadline);
}

bool Task::startWatching() {
    PoolShare* const owner = share_.load();
    return owner != nullptr && owner->watch(*this);
}

void Task::wantWritable() {
    if (PoolShare* const owner = share_.load()) owner->wantWritable(*this);
}

}  // namespace vorrim
