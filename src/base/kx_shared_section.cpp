#include "base/kx_shared_section.h"

#include <algorithm>
#include <cstdlib>
#include <sched.h>
#include <thread>

namespace vorrim {

namespace {

constexpr std::size_t kMostParts = 16;  // a bound on what a writer pays

// These calls fail only for a lock that is misused, and going on without it would corrupt what it
// guards.
void must(int result) noexcept {
    if (result != 0) std::abort();
}

std::size_t parts_of_this_machine() {
    return std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, kMostParts);
}

}  // namespace

kx_shared_section::kx_shared_section(const char* guarded)
    : count_(parts_of_this_machine()),
      parts_(std::make_unique<Part[]>(count_)),
      reads_(guarded, "reading"),
      writes_(guarded, "writing") {
    pthread_rwlockattr_t attributes;
    must(pthread_rwlockattr_init(&attributes));
#if defined(__GLIBC__)
    must(pthread_rwlockattr_setkind_np(&attributes, PTHREAD_RWLOCK_PREFER_WRITER_NONRECURSIVE_NP));
#endif
    for (std::size_t i = 0; i < count_; ++i)
        must(pthread_rwlock_init(&parts_[i].lock, &attributes));
    must(pthread_rwlockattr_destroy(&attributes));
    must(pthread_mutex_init(&writers_, nullptr));
}

kx_shared_section::~kx_shared_section() {
    must(pthread_mutex_destroy(&writers_));
    for (std::size_t i = 0; i < count_; ++i)
        must(pthread_rwlock_destroy(&parts_[i].lock));
}

kx_shared_section::Reading kx_shared_section::enter_read() noexcept {
    const int processor = ::sched_getcpu();
    const std::size_t part = processor < 0 ? 0 : static_cast<std::size_t>(processor) % count_;
    must(pthread_rwlock_rdlock(&parts_[part].lock));
    return {part, HoldTimes::now()};
}
void kx_shared_section::leave_read(const Reading& reading) noexcept {
    reads_.held_since(reading.since);
    must(pthread_rwlock_unlock(&parts_[reading.part].lock));
}
void kx_shared_section::enter_write() noexcept {
    must(pthread_mutex_lock(&writers_));
    for (std::size_t i = 0; i < count_; ++i)
        must(pthread_rwlock_wrlock(&parts_[i].lock));
    writing_since_ = HoldTimes::now();
}
void kx_shared_section::leave_write() noexcept {
    writes_.held_since(writing_since_);
    for (std::size_t i = 0; i < count_; ++i)
        must(pthread_rwlock_unlock(&parts_[i].lock));
    must(pthread_mutex_unlock(&writers_));
}

}  // namespace vorrim
