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

// Has no memory for its first saves, as often as it is told.
class Directory final : public DirectoryUpkeep {
public:
    void save() override {
        calls += "save ";
        if (failures == 0) return;
        if (--failures > 0) throw std::bad_alloc();
        kx_error("out of memory");
    }
    void sweep() override {
        calls += "sweep ";
        ++sweeps;
    }

    std::string calls;
    int failures = 0;
    std::atomic<int> sweeps{0};
};

class HousekeepingTaskTest : public ServiceFixture {
protected:
    Directory directory_;
    HousekeepingTask task_{clients_, files_, clock_, &directory_};
};

TEST_F(HousekeepingTaskTest, TheDirectoryIsSavedAndSweptAtOnceAndEvery721CyclesWhateverFailed) {
    directory_.failures = 2;
    for (int cycle = 0; cycle <= 3 * 721; ++cycle) {
        directory_.calls.clear();
        ASSERT_NO_THROW(task_.cycle()) << cycle;
        const char* const due = cycle < 2 * 721 ? "save " : "save sweep ";
        EXPECT_EQ(directory_.calls, cycle % 721 == 0 ? due : "") << cycle;
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

TEST_F(HousekeepingTaskTest, EachRequestIsMetAtOnceAndMovesNoCycle) {
    task_.requestUpkeep();
    task_.start();
    for (int i = 0; i < 20; ++i)
        task_.requestUpkeep();
    while (directory_.sweeps < 1 + 21)
        std::this_thread::yield();
    task_.stop();
    task_.cycle();
    EXPECT_EQ(directory_.sweeps, 1 + 21);
}

}  // namespace
}  // namespace vorrim
