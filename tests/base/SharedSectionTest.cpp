// The lock of many readers or one writer: who is kept out, and who may wait for how long.
#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <gtest/gtest.h>
#include <sched.h>
#include <thread>
#include <vector>

#include "base/kx_shared_section.h"

namespace vorrim {
namespace {

// Keeps the calling thread, if the system lets it, on a processor of its number, so that the
// readers have different parts.
void settle(unsigned number) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(number % std::max(std::thread::hardware_concurrency(), 1u), &one);
    (void)sched_setaffinity(0, sizeof one, &one);
}

// Words that differ while somebody writes.
class Guarded {
public:
    void write() {
        for (std::uint64_t& word : words_)
            ++word;
    }
    // The number of writings, or kTorn.
    static constexpr std::uint64_t kTorn = ~std::uint64_t{0};
    [[nodiscard]] std::uint64_t read() const {
        const bool whole = std::ranges::count(words_, words_.front()) == std::ssize(words_);
        return whole ? words_.front() : kTorn;
    }

private:
    std::array<std::uint64_t, 64> words_{};
};

// Threads that are joined at the end.
class Crowd {
public:
    template <class Do>
    void add(unsigned count, const Do& act) {
        for (unsigned i = 0; i < count; ++i)
            threads_.emplace_back([act, processor = started_++] {
                settle(processor);
                act();
            });
    }
    void join() { threads_.clear(); }

private:
    std::vector<std::jthread> threads_;
    unsigned started_ = 0;
};

constexpr unsigned kReaders = 4;
constexpr unsigned kWriters = 3;
constexpr std::uint64_t kTurns = 2000;
constexpr std::uint64_t kPieces = 3;  // of a writer's work, between which it gives way

TEST(SharedSection, KeepsWritersFromEachOtherAndFromReaders) {
    kx_shared_section lock;
    Guarded guarded;
    std::atomic<std::uint64_t> torn{0};
    std::atomic<unsigned> writing{kWriters};
    Crowd crowd;
    crowd.add(kReaders, [&] {
        std::uint64_t last = 0;
        while (writing != 0) {
            const kx_read_guard guard(lock);
            const std::uint64_t seen = guarded.read();
            if (seen == Guarded::kTorn || seen < last) ++torn;
            last = seen;
        }
    });
    crowd.add(kWriters, [&] {
        for (std::uint64_t turn = 0; turn < kTurns; ++turn) {
            const kx_write_guard guard(lock);
            const std::uint64_t before = guarded.read();
            for (std::uint64_t piece = 0; piece < kPieces; ++piece) {
                if (piece != 0) lock.give_way();
                guarded.write();
            }
            // Readers may have come in between, writers not.
            if (guarded.read() != before + kPieces) ++torn;
        }
        --writing;
    });
    crowd.join();
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(guarded.read(), kWriters * kTurns * kPieces);
}

TEST(SharedSection, LetsAWriterInAmongReadersThatNeverPause) {
    kx_shared_section lock;
    std::atomic<bool> done{false};
    Crowd readers;
    // Each comes again before the others have left, so that somebody reads at every moment.
    std::atomic<unsigned> reading{0};
    readers.add(kReaders, [&] {
        while (!done) {
            const kx_read_guard guard(lock);
            ++reading;
            for (unsigned i = 0; i < 100 && reading == 1 && !done; ++i)
                std::this_thread::yield();
            --reading;
        }
    });
    for (unsigned i = 0; i < 200; ++i) {
        while (reading == 0)
            std::this_thread::yield();
        const kx_write_guard guard(lock);
        EXPECT_EQ(reading, 0u);
    }
    done = true;
}

// The writer never leaves: what lets the readers in is its giving way.
TEST(SharedSection, LetsThoseInThatWaitWhenTheWriterGivesWay) {
    kx_shared_section lock;
    constexpr unsigned kEnough = 200;
    std::atomic<unsigned> coming{kReaders};
    std::atomic<unsigned> reads{0};
    std::atomic<bool> writing{true};
    std::atomic<unsigned> met{0};
    Crowd crowd;
    {
        const kx_write_guard guard(lock);
        EXPECT_FALSE(lock.give_way()) << "nobody waits";
        crowd.add(kReaders, [&] {
            for (unsigned i = 0; i < kEnough; ++i) {
                const kx_read_guard reading(lock);
                if (writing) ++met;
                ++reads;
            }
            --coming;
        });
        while (coming != 0) {
            const unsigned before = reads;
            writing = false;
            const bool gave = lock.give_way();
            writing = true;
            EXPECT_EQ(gave, reads != before);
        }
        EXPECT_EQ(reads, kReaders * kEnough);
        EXPECT_FALSE(lock.give_way()) << "nobody waits any more";
    }
    EXPECT_EQ(met, 0u);
}

TEST(SharedSection, MakesNoWriterGiveWayToThePatient) {
    kx_shared_section lock;
    std::atomic<bool> came{false};
    std::atomic<bool> read{false};
    Crowd crowd;
    {
        const kx_write_guard guard(lock);
        crowd.add(1, [&] {
            came = true;
            const kx_read_guard reading(lock, kx_shared_section::Patiently{});
            read = true;
        });
        while (!came)
            std::this_thread::yield();
        for (unsigned i = 0; i < 1000; ++i) {
            EXPECT_FALSE(lock.give_way());
            std::this_thread::yield();
        }
        EXPECT_FALSE(read);
    }
    crowd.join();
    EXPECT_TRUE(read);
}

}  // namespace
}  // namespace vorrim
