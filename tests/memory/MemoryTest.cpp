// Memory that runs out at any moment of an arrival or a publication, and all through a departure.
#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>
#include <string>

#include "base/kx_err.h"
#include "base/memory/PageHeap.h"
#include "client/KeywordFileIndex.h"
#include "net/ReachabilityTest.h"
#include "tests/client/Files.h"
#include "tests/client/ServiceFixture.h"

namespace {

const bool in_blocks_of_their_own = [] {
    vorrim::PageHeap::keep_blocks_apart(true);
    return true;
}();

// How many more allocations succeed before `failing` of them do not.
std::atomic<std::int64_t> left{INT64_MAX};
std::atomic<std::int64_t> failing{0};

void* allocate(std::size_t size, std::size_t alignment) {
    if (left.fetch_sub(1) <= 0 && failing.fetch_sub(1) > 0) throw std::bad_alloc();
    void* const memory = std::aligned_alloc(alignment, (size + alignment) / alignment * alignment);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

// By itself, or GCC, once it has expanded one of the operators, takes the other for foreign.
[[gnu::noinline]] void give_back(void* memory) {
    std::free(memory);
}

void fail_after(std::int64_t succeeding, std::int64_t then_failing) {
    failing = then_failing;
    left = succeeding;
}

// Whether it came to that.
bool end_of_failures() {
    return left.exchange(INT64_MAX) < 0;
}

// Whether the work needed one more allocation than so many, and went without it.
bool fails_after(std::int64_t succeeding, auto&& work) {
    fail_after(succeeding, 1);
    try {
        work();
    } catch (const std::bad_alloc&) {
    }
    return end_of_failures();
}

}  // namespace

void* operator new(std::size_t size) {
    return allocate(size, __STDCPP_DEFAULT_NEW_ALIGNMENT__);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return allocate(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
// The sanitizers' own would call none of these.
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    try {
        return operator new(size, alignment);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void operator delete(void* memory) noexcept {
    give_back(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    give_back(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    give_back(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    give_back(memory);
}

namespace vorrim {
namespace {

using namespace test;

constexpr std::int32_t kAll = 1000000;

// Every file is listed under "common"; some words are of a few files, some of one.
std::string name_of(std::uint32_t number) {
    return "common w" + std::to_string(number % 97) + " v" + std::to_string(number % 4) + " only" +
           std::to_string(number);
}

// However it is asked, the index tells of the same files, and of all their sources.
void expect_consistent(const KeywordFileIndex& index) {
    const auto sorted = [&](std::unique_ptr<SearchNode> root) {
        auto numbers = found(index, std::move(root), ClientId(0x01000001), kAll);
        std::ranges::sort(numbers);
        return numbers;
    };
    const auto all = sorted(std::make_unique<SN_All>());
    ASSERT_EQ(all, sorted(word("common")));
    ASSERT_EQ(std::ranges::adjacent_find(all), all.end());
    ASSERT_EQ(all.size(), index.file_total());
    std::int32_t sources = 0;
    for (const std::uint32_t number : all) {
        kx_memory_file reply(64);
        ASSERT_TRUE(index.write_sources(hash_of(number), reply));
        sources += std::to_integer<std::int32_t>(reply.written()[kHashSize]);
    }
    ASSERT_EQ(sources, index.source_total());
}

// One allocation of a publication fails, the first, the second and so on until it needs fewer, some
// left out where they are many and alike; then those who leave get no memory at all, or all they
// want. The files of the guest begin a segment, use up the rows, and make the lists of some words
// too long for an array.
TEST(KeywordFileIndex, LosesNothingWhenMemoryRunsOutAndGivesEverythingBackWithoutAny) {
    constexpr std::uint32_t kSegment = 4096;
    constexpr std::uint32_t kResidents = kSegment - 20;
    constexpr ClientId kResident(1);
    constexpr ClientId kGuest(0x01000001);
    constexpr ClientId kSecondGuest(0x01000002);
    KeywordFileIndex index({.row_limit = kSegment + 20, .segment_rows = kSegment});
    index.init(50);
    bool failed = true;
    for (std::uint32_t n = 0; failed; n += n < 100 ? 1 : 11) {
        SCOPED_TRACE(n);
        index.publish(files(0, kResidents, name_of), kResident, kPort);
        auto list = files(kResidents - 10, kResidents + 50, name_of);
        // Sources of one file: more than stand in a page.
        for (int copy = 0; copy < 70; ++copy)
            list.push_back(file(kResidents, name_of(kResidents)));
        failed = fails_after(n, [&] {
            try {
                index.publish(std::move(list), kGuest, kPort);
            } catch (const kx_err&) {  // of a record that had to be moved
            }
        });
        index.publish(files(kResidents, kResidents + 20, name_of), kSecondGuest, kPort);
        ASSERT_NO_FATAL_FAILURE(expect_consistent(index));

        std::array leaving{kResident, kGuest, kSecondGuest};
        std::rotate(leaving.begin(), leaving.begin() + n % leaving.size(), leaving.end());
        for (const ClientId client : leaving) {
            fail_after(n % 7, n % 2 * kAll);
            index.remove_client(client);
            end_of_failures();
            if (n % 16 == 0) {
                ASSERT_NO_FATAL_FAILURE(expect_consistent(index));
            }
        }
        ASSERT_EQ(index.file_total(), 0u);
        ASSERT_EQ(index.keyword_total(), 0u);
        ASSERT_EQ(index.source_total(), 0);
    }
}

class PoolMemory : public PoolFixture {};

// Does nothing but count its turns.
class Counter final : public Task {
public:
    Counter(socketPool& pool, int& turns) : Task(nullptr, pool), turns_(turns) {}
    Turn doTask(socketPool&) override {
        ++turns_;
        return Turn::wait;
    }

private:
    int& turns_;
};

TEST_F(PoolMemory, AnAdditionThatFailsCountsNothingAndAPostThatFailsCanBeMadeAgain) {
    int turns = 0;
    auto unlucky = std::make_unique<Counter>(pool_, turns);
    auto counter = std::make_unique<Counter>(pool_, turns);
    Task& task = *counter;
    fail_after(0, 1);
    EXPECT_THROW(pool_.add(std::move(unlucky)), std::bad_alloc);
    end_of_failures();
    EXPECT_EQ(share_.load(), 0U);
    pool_.add(std::move(counter));
    settle();
    EXPECT_EQ(std::exchange(turns, 0), 1);
    fail_after(0, 1);
    EXPECT_THROW(task.post(), std::bad_alloc);
    end_of_failures();
    task.post();
    settle();
    EXPECT_EQ(turns, 1);
}

// One allocation of an arrival fails, the first, the second and so on; departures get no memory.
TEST_F(PoolMemory, AReachabilityTestThatFindsNoMemoryHasNotEnteredAndAllOthersHaveTheirTurn) {
    limits_.reachability.set_limits(1, 0);
    const auto test_of = [&](std::uint32_t address) {
        static ReachabilityTest::Slot nowhere = nullptr;
        return std::make_unique<ReachabilityTest>(kx_ip_address(address, 1), pool_, nowhere,
                                                  [](bool) {});
    };
    ReachabilityGate& gate = limits_.reachability;
    auto first = test_of(1);
    ASSERT_TRUE(gate.enter(*first, 1));
    bool failed = true;
    for (std::int64_t n = 0; failed; ++n) {
        auto second = test_of(2);
        failed = fails_after(n, [&] { EXPECT_FALSE(gate.enter(*second, 2)); });
        if (failed) {
            second = test_of(2);
            EXPECT_FALSE(gate.enter(*second, 2));
        }
        auto third = test_of(1);
        EXPECT_FALSE(gate.enter(*third, 1));
        fail_after(0, kAll);
        first.reset();
        const bool entered = gate.has_entered(*second) && !gate.has_entered(*third);
        second.reset();
        end_of_failures();
        EXPECT_TRUE(entered);
        EXPECT_TRUE(gate.has_entered(*third));
        first = std::move(third);
    }
}

class ClientTableMemory : public ServiceFixture {};

TEST_F(ClientTableMemory, NobodyIsHalfInTheTable) {
    std::vector<std::unique_ptr<ClientConnection>> clients;
    std::int64_t fails = 0;
    while (clients.size() < 600) {
        const bool failed = fails_after(fails, [&] {
            clients.push_back(std::make_unique<ClientConnection>(nullptr, pool_, service_));
        });
        fails = failed ? fails + 1 : 0;
    }
    const auto expect_all = [&] {
        std::vector<const ClientConnection*> met;
        clients_.for_each([&met](ClientConnection& client) { met.push_back(&client); });
        EXPECT_TRUE(
            std::ranges::equal(met, clients, {}, {}, [](const auto& c) { return c.get(); }));
        EXPECT_TRUE(clients_.with_id(ClientId(), [&](const ClientConnection& client) {
            EXPECT_EQ(&client, clients.front().get());
        }));
    };
    expect_all();
    for (; clients.size() > 10; clients.erase(clients.begin()))
        fail_after(0, 1000);
    end_of_failures();
    expect_all();
}

}  // namespace
}  // namespace vorrim
