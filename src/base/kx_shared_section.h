#pragma once
// A lock that many readers or one writer hold, and the scopes that hold it.
//
//     reader ──► the part of the processor it runs on          writer ──► every part at once
//
//     part   in   [ readers that came | somebody sleeps | a writer came | phase ]
//            out  [ readers that left | the writer sleeps | . | . ]
//
// Readers on different processors touch different memory, so that short reads, which are what
// nearly all requests need, do not pass one line of the cache to and fro. A writer pays for it with
// a look at every part; writers of ours do work enough to hide that.
//
// The sides take turns. A waiting writer goes before new readers, so that a stream of readers
// cannot starve it; readers that find a writer wait for that one only, however soon the next one
// comes, or the same one again. So none waits for more than one turn of the other side. The price:
// a thread that already reads must not ask to read again, or it waits behind the writer that waits
// for it.
//
// Whoever waits keeps its processor for some microseconds, which is longer than most turns last,
// and sleeps then: to be woken takes many times as long as to look something up.
//
// Each part is the phase-fair lock of Brandenburg and Anderson, "Spin-Based Reader-Writer
// Synchronization for Multiprocessor Real-Time Systems" (2010). A reader counts itself in with one
// step, which tells whether a writer is there and in which of two phases; if so, it waits until
// the phase is another. A writer marks its phase with one step, which tells how many came before
// it, and waits until as many have left.

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

#include "base/Annotations.h"
#include "base/HoldTimes.h"

namespace vorrim {

class CAPABILITY("shared mutex") kx_shared_section final {
public:
    // What it guards is said where hold times are.
    explicit kx_shared_section(const char* guarded = "a lock");
    kx_shared_section(const kx_shared_section&) = delete;
    kx_shared_section& operator=(const kx_shared_section&) = delete;

    // How a reader holds it, for leave_read.
    struct Reading {
        std::size_t part;
        [[no_unique_address]] HoldTimes::Moment since;
    };
    [[nodiscard]] Reading enter_read() noexcept ACQUIRE_SHARED();
    // The same for who prepares to write: it waits among the writers, and makes none give way.
    [[nodiscard]] Reading enter_read_patiently() noexcept ACQUIRE_SHARED();
    struct Patiently {};  // for a guard
    void leave_read(const Reading& reading) noexcept RELEASE_SHARED();
    void enter_write() noexcept ACQUIRE();
    void leave_write() noexcept RELEASE();

    // For a writer between two pieces of its work, at each of which readers may look: lets those
    // in that wait, and no other writer, and returns when it has the lock again. Does nothing
    // while none waits, or while writers have held the lock for less time than they waited for it
    // themselves, so that long reads get half of the time and no more. Returns whether it let go.
    bool give_way() noexcept REQUIRES(this);

private:
    using Clock = std::chrono::steady_clock;

    // Two lines, since processors fetch them in pairs.
    struct alignas(128) Part {
        std::atomic<std::uint32_t> in{0};
        std::atomic<std::uint32_t> out{0};
        std::atomic<std::uint32_t> awaited{0};  // who was in when the writer came, as `out` has it
    };

    void await_next_phase(Part& part, std::uint32_t phase) const noexcept;
    void await_readers(Part& part) const noexcept;
    void take_parts() noexcept;
    void give_parts() noexcept;
    [[nodiscard]] bool reader_waits() const noexcept;

    const std::size_t count_;
    const std::unique_ptr<Part[]> parts_;
    const Clock::duration spin_;

    // Writers wait for each other here, so that in each part one waits at most, and what waits
    // behind it are readers.
    std::mutex writers_;
    // Of the writer that holds it.
    std::uint32_t phase_ = 0;
    Clock::duration credit_{};   // for how long writers waited, less for how long they stayed
    Clock::time_point entered_;  // while there is credit
    [[no_unique_address]] HoldTimes::Moment writing_since_;

    [[no_unique_address]] HoldTimes reads_;
    [[no_unique_address]] HoldTimes writes_;
};

class [[nodiscard]] SCOPED_CAPABILITY kx_read_guard final {
public:
    explicit kx_read_guard(kx_shared_section& section) noexcept ACQUIRE_SHARED(section)
        : section_(section), reading_(section_.enter_read()) {}
    kx_read_guard(kx_shared_section& section, kx_shared_section::Patiently) noexcept
        ACQUIRE_SHARED(section)
        : section_(section), reading_(section_.enter_read_patiently()) {}
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
