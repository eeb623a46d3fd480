// Blocks of all sizes, taken and given back by one thread and by several, until memory runs out.
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <vector>

#include "base/memory/PageHeap.h"

namespace vorrim {
namespace {

// In this program the sanitizers watch the heap itself.
const bool in_pages = [] {
    PageHeap::keep_blocks_apart(false);
    return true;
}();

constexpr std::size_t kRegion = std::size_t{2} << 20;

// The sanitizers' own memory counts with that of the process.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kShadowed = true;
#else
constexpr bool kShadowed = false;
#endif

// A block filled with its own pattern, which nobody else may touch.
class Filled {
public:
    Filled(std::size_t size, std::uint8_t pattern)
        : size_(size), pattern_(pattern), bytes_(PageHeap::array<std::uint8_t>(size)) {
        std::memset(bytes_.get(), pattern_, size_);
    }
    [[nodiscard]] bool whole() const {
        return bytes_[0] == pattern_ && std::memcmp(bytes_.get(), bytes_.get() + 1, size_ - 1) == 0;
    }
    [[nodiscard]] const void* place() const { return bytes_.get(); }

private:
    std::size_t size_;
    std::uint8_t pattern_;
    PageHeap::Array<std::uint8_t> bytes_;
};

std::size_t any_size(std::mt19937& random) {
    switch (random() % 16) {
        case 0:
            return 1 + random() % (100 * 1024);
        case 1:
            return 1 + random() % 4200;
        default:
            return 1 + random() % 600;
    }
}

std::size_t resident_bytes() {
    std::size_t all = 0;
    std::size_t resident = 0;
    std::ifstream("/proc/self/statm") >> all >> resident;
    return resident * 4096;
}

TEST(PageHeap, KeepsBlocksOfAllSizesApartAndGivesTheirMemoryBack) {
    ASSERT_TRUE(in_pages);
    std::mt19937 random(1);
    const std::size_t before = resident_bytes();
    std::vector<Filled> blocks;
    for (int round = 0; round < 4; ++round) {
        for (const std::size_t size : {kRegion - 20 * 1024, kRegion, 3 * kRegion + 1})
            blocks.emplace_back(size, static_cast<std::uint8_t>(size));
        for (int i = 0; i < 30000; ++i) {
            if (random() % 3 != 0 || blocks.empty()) {
                blocks.emplace_back(any_size(random), static_cast<std::uint8_t>(random()));
                ASSERT_EQ(reinterpret_cast<std::uintptr_t>(blocks.back().place()) % 8, 0u);
            } else {
                std::swap(blocks[random() % blocks.size()], blocks.back());
                ASSERT_TRUE(blocks.back().whole());
                blocks.pop_back();
            }
        }
        for (const Filled& block : blocks)
            ASSERT_TRUE(block.whole());
        const std::size_t kept = round % 2 == 0 ? blocks.size() / 2 : 0;
        std::shuffle(blocks.begin(), blocks.end(), random);
        blocks.erase(blocks.begin() + static_cast<std::ptrdiff_t>(kept), blocks.end());
    }
    blocks.shrink_to_fit();
    if (kShadowed) GTEST_SKIP() << "but for the last: the memory of the sanitizer counts with it";
    EXPECT_LT(resident_bytes(), before + 4 * kRegion);
}

TEST(PageHeap, PacksSmallBlocksClosely) {
    constexpr std::size_t kCount = 100'000;
    constexpr std::size_t kSize = 136;
    const std::size_t before = resident_bytes();
    std::vector<Filled> blocks;
    blocks.reserve(kCount);
    const std::size_t own = resident_bytes();
    for (std::size_t i = 0; i < kCount; ++i)
        blocks.emplace_back(kSize, 1);
    const std::size_t vector_bytes = kCount * sizeof(Filled) + (own - before);
    if (kShadowed) GTEST_SKIP() << "the memory of the sanitizer counts with it";
    EXPECT_LT(resident_bytes() - before, kCount * kSize * 103 / 100 + vector_bytes + 2 * kRegion);
}

// What one thread takes another gives back.
TEST(PageHeap, ServesThreadsThatGiveBackWhatOthersTook) {
    constexpr std::size_t kThreads = 4;
    constexpr int kBlocks = 50000;
    constexpr std::array<std::size_t, 3> kSizes = {20, 30, 5000};  // so that they meet
    std::array<std::atomic<Filled*>, 64> exchange{};
    std::atomic<int> broken{0};
    const auto drop = [&broken](Filled* block) {
        const std::unique_ptr<Filled> owned(block);
        if (owned && !owned->whole()) ++broken;
    };
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] {
            std::mt19937 random(static_cast<unsigned>(i));
            for (int n = 0; n < kBlocks; ++n) {
                if (n % 1000 == 0) PageHeap::prepare();
                auto block = std::make_unique<Filled>(kSizes[random() % kSizes.size()],
                                                      static_cast<std::uint8_t>(random()));
                drop(exchange[random() % exchange.size()].exchange(block.release()));
            }
        });
    threads.clear();  // they have ended
    for (auto& block : exchange)
        drop(block.load());
    EXPECT_EQ(broken, 0);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// In a process of its own, whose memory is limited.
TEST(PageHeapDeathTest, SaysWhenThereIsNoMemoryAndGoesOnWhenThereIsAgain) {
    const auto run_out = [] {
        std::size_t all = 0;
        std::ifstream("/proc/self/statm") >> all;
        const rlimit limit{all * 4096 + 20 * kRegion, RLIM_INFINITY};
        if (::setrlimit(RLIMIT_AS, &limit) != 0) std::_Exit(2);
        constexpr std::array<std::size_t, 4> kSizes = {5 * kRegion, kRegion, 40'000, 1000};
        std::array<std::size_t, 2> taken{};
        for (std::size_t& bytes : taken) {
            void* chain = nullptr;  // each block names the one before
            for (const std::size_t size : kSizes)
                while (void* const block = PageHeap::try_take(size)) {
                    std::memcpy(block, &chain, sizeof(chain));
                    chain = block;
                    bytes += size;
                }
            PageHeap::prepare();
            if (PageHeap::try_array<int>(kRegion)) std::_Exit(3);
            while (chain != nullptr) {
                void* const block = chain;
                std::memcpy(&chain, block, sizeof(chain));
                PageHeap::give_back(block);
            }
        }
        std::_Exit(taken[0] > 15 * kRegion && taken[1] >= taken[0] * 9 / 10 ? 0 : 1);
    };
    EXPECT_EXIT(run_out(), testing::ExitedWithCode(0), "");
}
#endif

TEST(PageArray, OwnsItsObjects) {
    using Counter = std::shared_ptr<int>;
    const Counter counter = std::make_shared<int>();
    PageArray<Counter> first = PageArray<Counter>::make(1000);
    for (Counter& each : first)
        each = counter;
    PageArray<Counter> second = std::move(first);
    EXPECT_FALSE(first);
    EXPECT_EQ(counter.use_count(), 1001);
    second = PageArray<Counter>::make(10);
    EXPECT_EQ(counter.use_count(), 1);
    EXPECT_EQ(second.size(), 10u);
    EXPECT_FALSE(PageArray<Counter>::make(0));
}

}  // namespace
}  // namespace vorrim
