#include "net/kx_select_set.h"

#include <algorithm>
#include <ctime>
#include <sys/eventfd.h>
#include <unistd.h>

#include "base/kx_err.h"

namespace vorrim {

namespace {

std::uint32_t to_epoll(std::uint32_t flags) noexcept {
    std::uint32_t events = EPOLLET;
    if ((flags & kReadable) != 0) events |= EPOLLIN | EPOLLRDHUP;
    if ((flags & kWritable) != 0) events |= EPOLLOUT;
    return events;
}

std::uint32_t from_epoll(std::uint32_t events) noexcept {
    std::uint32_t flags = 0;
    if ((events & EPOLLIN) != 0) flags |= kReadable;
    if ((events & EPOLLOUT) != 0) flags |= kWritable;
    if ((events & (EPOLLRDHUP | EPOLLHUP)) != 0) flags |= kReadable | kPeerEnded;
    if ((events & EPOLLERR) != 0) flags |= kException;
    return flags;
}

}  // namespace

kx_select_set::kx_select_set()
    : epoll_(::epoll_create1(EPOLL_CLOEXEC)), wake_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    // Edge-triggered, so the counter never needs to be read back to zero.
    epoll_event event{};
    event.events = EPOLLIN | EPOLLET;
    event.data.ptr = nullptr;
    if (epoll_ < 0 || wake_ < 0 || ::epoll_ctl(epoll_, EPOLL_CTL_ADD, wake_, &event) != 0) {
        if (wake_ >= 0) ::close(wake_);
        if (epoll_ >= 0) ::close(epoll_);
        kx_error("no descriptor left for a readiness set");
    }
}

kx_select_set::~kx_select_set() {
    ::close(wake_);
    ::close(epoll_);
}

bool kx_select_set::add(int handle, std::uint32_t flags, Task& task) {
    epoll_event event{};
    event.events = to_epoll(flags);
    event.data.ptr = &task;
    return ::epoll_ctl(epoll_, EPOLL_CTL_ADD, handle, &event) == 0;
}

void kx_select_set::want_writable(int handle, Task& task) {
    // Modifying the interest also re-arms the edge, so room that appeared meanwhile is not missed.
    epoll_event event{};
    event.events = to_epoll(kReadable | kWritable);
    event.data.ptr = &task;
    ::epoll_ctl(epoll_, EPOLL_CTL_MOD, handle, &event);
}

void kx_select_set::remove(int /*handle*/) {
    // The close that follows takes the handle out of the set: no descriptor here is ever
    // duplicated.
}

std::span<const ReadyTask> kx_select_set::wait(std::optional<std::chrono::nanoseconds> limit) {
    int count = 0;
    if (limit && limit->count() <= 0) {
        count = ::epoll_wait(epoll_, events_.data(), static_cast<int>(kBatch), 0);
    } else {
        int timeout = -1;
        if (limit) {
            // Rounded up: waking a moment early would spin until the deadline.
            const auto up = std::chrono::ceil<std::chrono::milliseconds>(*limit).count();
            timeout = static_cast<int>(std::min<std::int64_t>(up, 3'600'000));
        }
        count = ::epoll_wait(epoll_, events_.data(), static_cast<int>(kBatch), timeout);
    }
    std::size_t ready = 0;
    for (std::size_t i = 0; i < static_cast<std::size_t>(std::max(count, 0)); ++i) {
        auto* task = static_cast<Task*>(events_[i].data.ptr);
        if (task != nullptr) ready_[ready++] = ReadyTask{task, from_epoll(events_[i].events)};
    }
    return {ready_.data(), ready};
}

void kx_select_set::wake() noexcept {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(wake_, &one, sizeof one);
}

}  // namespace vorrim
