#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <utility>

#include "app/HousekeepingTask.h"
#include "base/kx_err.h"
#include "tests/client/Files.h"
#include "tests/client/ServiceFixture.h"

namespace vorrim {
namespace {

class Directory final : public DirectoryUpkeep {
public:
    void save() override { calls += "save "; }
    void sweep() override { calls += "sweep "; }
    std::string calls;
};

class HousekeepingTaskTest : public ServiceFixture {
protected:
    Directory directory_;
    HousekeepingTask task_{clients_, files_, &directory_};
};

TEST_F(HousekeepingTaskTest, TheDirectoryIsSavedAndSweptAtOnceAndEvery721Cycles) {
    for (int cycle = 0; cycle <= 2 * 721; ++cycle) {
        directory_.calls.clear();
        task_.cycle();
        EXPECT_EQ(directory_.calls, cycle % 721 == 0 ? "save sweep " : "") << cycle;
    }
}

TEST_F(HousekeepingTaskTest, EveryConnectionGetsTheStatusEvery13Cycles) {
    auto [socket, peer] = net_.arrival(0);
    pool_.add(std::make_unique<ClientConnection>(std::move(socket), pool_, service_));
    settle();

    files_.publish(test::files(0, 3, [](std::uint32_t) { return "song"; }), ClientId(5), 4662);

    const Bytes status = frame_of(std::string("\x34\x01\0\0\0\x03\0\0\0", 9));
    for (int cycle = 1; cycle <= 2 * 13; ++cycle) {
        task_.cycle();
        settle();
        EXPECT_EQ(peer->take(), cycle % 13 == 0 ? status : Bytes()) << cycle;
    }
    pool_.delete_all();
}

TEST_F(HousekeepingTaskTest, WhatFailsIsLeftOutAndTheRestGoesOn) {
    struct Failing final : DirectoryUpkeep {
        void save() override {
            if (++saves == 1) throw std::bad_alloc();
            if (saves == 2) kx_error("out of memory");
        }
        void sweep() override { ++sweeps; }
        int saves = 0;
        int sweeps = 0;
    } failing;
    HousekeepingTask task(clients_, files_, &failing);
    for (int cycle = 0; cycle <= 2 * 721; ++cycle)
        ASSERT_NO_THROW(task.cycle()) << cycle;
    EXPECT_EQ(failing.saves, 3);
    EXPECT_EQ(failing.sweeps, 1);
}

TEST_F(HousekeepingTaskTest, EachRequestIsMetAtOnceAndMovesNoCycle) {
    struct Counter final : DirectoryUpkeep {
        void save() override {}
        void sweep() override { ++sweeps; }
        std::atomic<int> sweeps{0};
    } counter;
    HousekeepingTask task(clients_, files_, &counter);
    task.requestUpkeep();
    task.start();
    for (int i = 0; i < 20; ++i)
        task.requestUpkeep();
    while (counter.sweeps < 1 + 21)
        std::this_thread::yield();
    task.stop();
    EXPECT_EQ(counter.sweeps, 1 + 21);
}

}  // namespace
}  // namespace vorrim
