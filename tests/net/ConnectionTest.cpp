#include <array>
#include <malloc.h>
#include <thread>

#include "tests/net/EchoFixture.h"

namespace vorrim {
namespace {

using ConnectionTest = EchoFixture;

TEST_F(ConnectionTest, EveryWayToReplyKeepsTheOrderAndAnAbandonedReplyWasNeverThere) {
    Bytes all;
    Bytes expected;
    for (int i = 0; i < 20; ++i) {
        const char kind = "AIeSAISI"[i % 8];
        const Bytes one = frame_of(kind + std::to_string(i));
        all.insert(all.end(), one.begin(), one.end());
        if (kind != 'A') expected.insert(expected.end(), one.begin(), one.end());
    }
    peer_->bring(all);
    settle();
    EXPECT_EQ(peer_->take(), expected);
}

TEST_F(ConnectionTest, WhatADeadlineRaisesEndsNeitherTheTaskNorItsWorker) {
    for (const char* payload : {"R", "after"}) {
        peer_->bring(frame_of(payload));
        settle();
    }
    EXPECT_EQ(all_.handled, 2);
}

TEST_F(ConnectionTest, WhoAsksForLittleWaitsForOneOfThoseWhoAskForMuch) {
    constexpr int kMany = 40;
    const std::vector<Bytes> much(kMany, frame_of(std::string(1000, 'e')));
    all_.slowed = &clock_;
    Line& modest = *peer_;
    const std::array peers{&connect(), &connect(), &connect()};
    for (Line* peer : peers)
        peer->bring(in_a_row(much));
    share_.run_once(std::chrono::nanoseconds(0));
    const int first_turns = all_.handled;
    EXPECT_GT(first_turns, 0);
    EXPECT_LT(first_turns, 3 * kMany);

    const Bytes little = frame_of("little");
    modest.bring(little);
    share_.run_once(std::chrono::nanoseconds(0));
    EXPECT_EQ(modest.take(), little);
    EXPECT_EQ(all_.handled, first_turns + first_turns / 3 + 1);
    settle();
    for (Line* peer : peers)
        EXPECT_EQ(peer->take(), in_a_row(much));
}

TEST_F(ConnectionTest, ALongFarewellKeepsNeitherThePeerNorTheNeighboursWaiting) {
    EchoConnection& leaving = *connection_;
    Line& peer = *peer_;
    Line& neighbour = connect();
    leaving.turns_to_leave = 10;
    peer.bring(frame_of("X"));
    std::thread([&] { leaving.post(); }).join();
    share_.run_once(std::chrono::nanoseconds(0));
    EXPECT_TRUE(peer.closed);
    EXPECT_EQ(all_.alive, 2);

    leaving.post();  // what others still leave for it is of no use, and does no harm
    leaving.close();
    const Bytes asked = frame_of("neighbour");
    neighbour.bring(asked);
    share_.run_once(std::chrono::nanoseconds(0));
    EXPECT_EQ(neighbour.take(), asked);
    EXPECT_EQ(all_.alive, 2);
    settle();
    EXPECT_EQ(all_.alive, 1);
}

// How packets are received is the wire tests' matter.
TEST(Packet, SendsTheRestOfTheHeaderFirst) {
    MemoryNet net;
    const auto [socket, line] = net.arrival(0);
    Packet packet(4);
    write_bytes(packet.body(), std::as_bytes(std::span("\x01\xAA\xBB\xCC", 4)));
    struct Step {
        std::size_t gulp;
        Progress progress;
        std::uint32_t moved;
    };
    for (const auto& [gulp, progress, moved] :
         {Step{2, Progress::pending, 2}, Step{0, Progress::pending, 0},
          Step{3, Progress::pending, 3 + 3}, Step{3, Progress::done, 1}}) {
        line->gulp = gulp;
        std::uint32_t count = 77;
        EXPECT_EQ(packet.send(*socket, count), progress);
        EXPECT_EQ(count, moved);
    }
    EXPECT_TRUE(std::ranges::equal(line->take(),
                                   std::as_bytes(std::span("\xE3\x04\0\0\0\x01\xAA\xBB\xCC", 9))));
    socket->close();
    std::uint32_t count = 0;
    EXPECT_EQ(Packet(1).send(*socket, count), Progress::failed);
}

std::size_t allocated() {
    const struct mallinfo2 heap = ::mallinfo2();
    return heap.uordblks + heap.hblkhd;
}

// Towards a reader who is always a little behind: the last byte stays.
TEST(SendQueue, NeverEmptyItKeepsOnlyWhatIsNotSent) {
    SendQueue queue;
    MemoryNet net;
    const auto [socket, line] = net.arrival(0);
    const auto shared = std::make_shared<const Packet>(Packet(1000));
    std::uint32_t count = 0;
    const auto round = [&, &peer = *line, &to = *socket] {
        for (int i = 0; i < 20; ++i)
            queue.append(shared);
        peer.take();
        peer.room = queue.waiting() - 1;
        ASSERT_EQ(queue.flush(to, {}, count), SendQueue::Flush::blocked);
        ASSERT_EQ(queue.waiting(), 1u);
    };
    ASSERT_NO_FATAL_FAILURE(round());
    const std::size_t before = allocated();
    for (int i = 0; i < 1000; ++i)
        ASSERT_NO_FATAL_FAILURE(round());
    EXPECT_LT(allocated(), before + 64 * 1024);
}

TEST(SendQueue, TakesNoMoreMemoryThanWhatWaitsWhenOwnAndSharedPacketsTakeTurns) {
    SendQueue queue;
    const Packet own(2);
    for (const std::uint32_t length : {10U, 300U}) {
        const auto shared = std::make_shared<const Packet>(Packet(length));
        const std::size_t before = allocated();
        for (int i = 0; i < 1'000; ++i) {
            queue.append(shared);
            queue.append(own);
        }
        EXPECT_LT(allocated(), before + 2 * queue.waiting());
    }
}

}  // namespace
}  // namespace vorrim
