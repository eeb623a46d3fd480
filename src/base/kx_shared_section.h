#pragma once
// A lock that many readers or one writer hold, and the scopes that hold it.
//
// A waiting writer goes before new readers, so that a stream of readers cannot starve it. The
// price: a thread that already reads must not ask to read again, or it waits behind the writer that
// waits for it.

#include <pthread.h>

#include "base/Annotations.h"

namespace vorrim {

class CAPABILITY("shared mutex") kx_shared_section final {
public:
    kx_shared_section() noexcept;
    ~kx_shared_section();
    kx_shared_section(const kx_shared_section&) = delete;
    kx_shared_section& operator=(const kx_shared_section&) = delete;

    void enter_read() noexcept ACQUIRE_SHARED();
    void leave_read() noexcept RELEASE_SHARED();
    void enter_write() noexcept ACQUIRE();
    void leave_write() noexcept RELEASE();

private:
    pthread_rwlock_t lock_;
};

class [[nodiscard]] SCOPED_CAPABILITY kx_read_guard final {
public:
    explicit kx_read_guard(kx_shared_section& section) noexcept ACQUIRE_SHARED(section)
        : section_(section) {
        section_.enter_read();
    }
    ~kx_read_guard() RELEASE_GENERIC() { section_.leave_read(); }
    kx_read_guard(const kx_read_guard&) = delete;
    kx_read_guard& operator=(const kx_read_guard&) = delete;

private:
    kx_shared_section& section_;
};

class [[nodiscard]] SCOPED_CAPABILITY kx_write_guard final {
public:
    explicit kx_write_guard(kx_shared_section& section) noexcept ACQUIRE(section)
        : section_(section) {
        section_.enter_write();
    }
    ~kx_write_guard() RELEASE() { section_.leave_write(); }
    kx_write_guard(const kx_write_guard&) = delete;
    kx_write_guard& operator=(const kx_write_guard&) = delete;

private:
    kx_shared_section& section_;
};

}  // namespace vorrim
