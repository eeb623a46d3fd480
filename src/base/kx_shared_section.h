#pragma once
// A lock that many readers or one writer hold, and the scopes that hold it.
//
//     reader ──► the part of the processor it runs on          writer ──► every part, in order
//
// Readers on different processors touch different memory, so that short reads, which are what
// nearly all requests need, do not pass one line of the cache to and fro. A writer pays for it with
// one lock for each processor; writers of ours do work enough to hide that.
//
// A waiting writer goes before new readers, so that a stream of readers cannot starve it; nor can
// writers starve readers, for those that wait have their turn between two writers. The price: a
// thread that already reads must not ask to read again, or it waits behind the writer that waits
// for it.

#include <cstddef>
#include <memory>
#include <pthread.h>

#include "base/Annotations.h"
#include "base/HoldTimes.h"

namespace vorrim {

class CAPABILITY("shared mutex") kx_shared_section final {
public:
    // What it guards is said where hold times are.
    explicit kx_shared_section(const char* guarded = "a lock");
    ~kx_shared_section();
    kx_shared_section(const kx_shared_section&) = delete;
    kx_shared_section& operator=(const kx_shared_section&) = delete;

    // How a reader holds it, for leave_read.
    struct Reading {
        std::size_t part;
        [[no_unique_address]] HoldTimes::Moment since;
    };
    [[nodiscard]] Reading enter_read() noexcept ACQUIRE_SHARED();
    void leave_read(const Reading& reading) noexcept RELEASE_SHARED();
    void enter_write() noexcept ACQUIRE();
    void leave_write() noexcept RELEASE();

private:
    // Two lines, since processors fetch them in pairs.
    struct alignas(128) Part {
        pthread_rwlock_t lock;
    };

    // Writers wait for each other here, so that in each part one waits at most, and what waits
    // behind it are readers.
    pthread_mutex_t writers_;
    const std::size_t count_;
    const std::unique_ptr<Part[]> parts_;
    [[no_unique_address]] HoldTimes reads_;
    [[no_unique_address]] HoldTimes writes_;
    [[no_unique_address]] HoldTimes::Moment writing_since_;
};

class [[nodiscard]] SCOPED_CAPABILITY kx_read_guard final {
public:
    explicit kx_read_guard(kx_shared_section& section) noexcept ACQUIRE_SHARED(section)
        : section_(section), reading_(section_.enter_read()) {}
    ~kx_read_guard() RELEASE_GENERIC() { section_.leave_read(reading_); }
    kx_read_guard(const kx_read_guard&) = delete;
    kx_read_guard& operator=(const kx_read_guard&) = delete;

private:
    kx_shared_section& section_;
    const kx_shared_section::Reading reading_;
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
