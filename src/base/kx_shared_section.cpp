#include "base/kx_shared_section.h"

#include <cstdlib>

namespace vorrim {

namespace {

// These calls fail only for a lock that is misused, and going on without it would corrupt what it
// guards.
void must(int result) noexcept {
    if (result != 0) std::abort();
}

}  // namespace

kx_shared_section::kx_shared_section() noexcept {
    pthread_rwlockattr_t attributes;
    must(pthread_rwlockattr_init(&attributes));
#if defined(__GLIBC__)
    must(pthread_rwlockattr_setkind_np(&attributes, PTHREAD_RWLOCK_PREFER_WRITER_NONRECURSIVE_NP));
#endif
    must(pthread_rwlock_init(&lock_, &attributes));
    must(pthread_rwlockattr_destroy(&attributes));
}

kx_shared_section::~kx_shared_section() {
    must(pthread_rwlock_destroy(&lock_));
}

void kx_shared_section::enter_read() noexcept {
    must(pthread_rwlock_rdlock(&lock_));
}
void kx_shared_section::leave_read() noexcept {
    must(pthread_rwlock_unlock(&lock_));
}
void kx_shared_section::enter_write() noexcept {
    must(pthread_rwlock_wrlock(&lock_));
}
void kx_shared_section::leave_write() noexcept {
    must(pthread_rwlock_unlock(&lock_));
}

}  // namespace vorrim
