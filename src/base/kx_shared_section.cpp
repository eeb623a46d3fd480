#include "base/kx_shared_section.h"

#include <algorithm>
#include <climits>
#include <linux/futex.h>
#include <sched.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace vorrim {

namespace {

using Word = std::atomic<std::uint32_t>;

constexpr std::size_t kMostParts = 16;  // a bound on what a writer pays

// Longer than a step of a search: what writers have waited for one, they may go on.
constexpr std::chrono::milliseconds kMostCredit(1);

constexpr std::uint32_t kPhase = 1;
constexpr std::uint32_t kWriter = 2;
constexpr std::uint32_t kSleeper = 4;
constexpr std::uint32_t kReader = 8;  // one of them; the count may run over
constexpr std::uint32_t kReaders = ~(kReader - 1);

std::size_t processors() {
    return std::max<std::size_t>(std::thread::hardware_concurrency(), 1);
}

// Both return for no reason too.
static_assert(sizeof(Word) == sizeof(std::uint32_t) && Word::is_always_lock_free);
void sleep_while(Word& word, std::uint32_t value) noexcept {
    ::syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, value, nullptr, nullptr, 0);
}
void wake_all(Word& word) noexcept {
    ::syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

void pause_a_moment() noexcept {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

// Waits with the processor for so long at most. Returns whether it has become true.
template <class Clock, class True>
bool spin(typename Clock::duration limit, True&& is_true) noexcept {
    constexpr int kLooks = 16;  // between two at the clock
    if (limit.count() == 0) return is_true();
    const auto end = Clock::now() + limit;
    do {
        for (int look = 0; look < kLooks; ++look) {
            if (is_true()) return true;
            pause_a_moment();
        }
    } while (Clock::now() < end);
    return false;
}

}  // namespace

kx_shared_section::kx_shared_section(const char* guarded)
    : count_(std::min(processors(), kMostParts)),
      parts_(std::make_unique<Part[]>(count_)),
      spin_(processors() > 1 ? std::chrono::microseconds(30) : Clock::duration::zero()),
      reads_(guarded, "reading"),
      writes_(guarded, "writing") {}

kx_shared_section::Reading kx_shared_section::enter_read() noexcept {
    const int processor = ::sched_getcpu();
    const std::size_t part = processor < 0 ? 0 : static_cast<std::size_t>(processor) % count_;
    const std::uint32_t found = parts_[part].in.fetch_add(kReader, std::memory_order_acquire);
    if ((found & kWriter) != 0) await_next_phase(parts_[part], found & (kWriter | kPhase));
    return {part, HoldTimes::now()};
}

kx_shared_section::Reading kx_shared_section::enter_read_patiently() noexcept {
    writers_.lock();
    const Reading reading = enter_read();
    writers_.unlock();
    return reading;
}

void kx_shared_section::leave_read(const Reading& reading) noexcept {
    reads_.held_since(reading.since);
    Part& part = parts_[reading.part];
    const std::uint32_t left = part.out.fetch_add(kReader, std::memory_order_acq_rel) + kReader;
    if ((left & kSleeper) == 0) return;
    if ((left & kReaders) == part.awaited.load(std::memory_order_relaxed)) wake_all(part.out);
}

// The phase cannot come back before this reader has been in: the next writer waits for it.
void kx_shared_section::await_next_phase(Part& part, std::uint32_t phase) const noexcept {
    const auto is_over = [phase](std::uint32_t in) { return (in & (kWriter | kPhase)) != phase; };
    if (spin<Clock>(spin_, [&] { return is_over(part.in.load(std::memory_order_acquire)); }))
        return;
    std::uint32_t in = part.in.load(std::memory_order_acquire);
    while (!is_over(in)) {
        const std::uint32_t asleep = in | kSleeper;
        if (in != asleep && !part.in.compare_exchange_weak(in, asleep, std::memory_order_acquire))
            continue;
        sleep_while(part.in, asleep);
        in = part.in.load(std::memory_order_acquire);
    }
}

void kx_shared_section::enter_write() noexcept {
    writers_.lock();
    take_parts();
}

void kx_shared_section::leave_write() noexcept {
    give_parts();
    writers_.unlock();
}

bool kx_shared_section::give_way() noexcept {
    if (!reader_waits()) return false;
    if (credit_ != Clock::duration::zero() && Clock::now() - entered_ < credit_) return false;
    give_parts();
    take_parts();
    return true;
}

bool kx_shared_section::reader_waits() const noexcept {
    return std::any_of(&parts_[0], &parts_[count_], [](const Part& part) {
        return (part.in.load(std::memory_order_relaxed) & kReaders) !=
               part.awaited.load(std::memory_order_relaxed);
    });
}

void kx_shared_section::take_parts() noexcept {
    phase_ ^= kPhase;
    for (std::size_t i = 0; i < count_; ++i) {
        const std::uint32_t found =
            parts_[i].in.fetch_or(kWriter | phase_, std::memory_order_acq_rel);
        parts_[i].awaited.store(found & kReaders, std::memory_order_relaxed);
    }
    const auto is_free = [](const Part& part) {
        return part.out.load(std::memory_order_acquire) ==
               part.awaited.load(std::memory_order_relaxed);
    };
    if (!std::all_of(&parts_[0], &parts_[count_], is_free)) {
        const Clock::time_point came = Clock::now();
        for (std::size_t i = 0; i < count_; ++i)
            await_readers(parts_[i]);
        entered_ = Clock::now();
        credit_ = std::min<Clock::duration>(credit_ + (entered_ - came), kMostCredit);
    } else if (credit_ != Clock::duration::zero()) {
        entered_ = Clock::now();
    }
    writing_since_ = HoldTimes::now();
}

void kx_shared_section::await_readers(Part& part) const noexcept {
    const std::uint32_t awaited = part.awaited.load(std::memory_order_relaxed);
    if (spin<Clock>(spin_, [&] { return part.out.load(std::memory_order_acquire) == awaited; }))
        return;
    std::uint32_t out = part.out.fetch_or(kSleeper, std::memory_order_acq_rel) | kSleeper;
    while ((out & kReaders) != awaited) {
        sleep_while(part.out, out);
        out = part.out.load(std::memory_order_acquire);
    }
    part.out.fetch_and(~kSleeper, std::memory_order_relaxed);
}

void kx_shared_section::give_parts() noexcept {
    writes_.held_since(writing_since_);
    if (credit_ != Clock::duration::zero())
        credit_ = std::max(credit_ - (Clock::now() - entered_), Clock::duration::zero());
    std::uint32_t with_sleepers = 0;
    for (std::size_t i = 0; i < count_; ++i) {
        const std::uint32_t found = parts_[i].in.fetch_and(kReaders, std::memory_order_release);
        if ((found & kSleeper) != 0) with_sleepers |= 1u << i;
    }
    for (std::size_t i = 0; with_sleepers != 0; ++i, with_sleepers >>= 1)
        if ((with_sleepers & 1) != 0) wake_all(parts_[i].in);
}

}  // namespace vorrim
