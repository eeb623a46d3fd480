#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <utility>

#include "base/kx_err.h"
#include "net/Connection.h"
#include "tests/net/PoolFixture.h"

namespace vorrim {
namespace {

// Answers every packet with the same packet; some opcodes do something else.
class EchoConnection final : public Connection {
public:
    static constexpr std::uint8_t kPause = 'P';
    static constexpr std::uint8_t kRefuse = 'X';
    static constexpr std::uint8_t kRaiseLater = 'L';
    static constexpr std::uint8_t kShare = 'S';    // sends the payload as a shared packet
    static constexpr std::uint8_t kInPlace = 'I';  // writes it in place
    static constexpr std::uint8_t kAbandon = 'A';  // begins that and thinks better of it

    EchoConnection(std::unique_ptr<kx_net_socket> socket, socketPool& pool, int& alive)
        : Connection(std::move(socket), pool), alive_(alive) {
        ++alive_;
    }
    ~EchoConnection() override { --alive_; }

    void go_on() { resume(); }
    int handled = 0;
    int turns_to_leave = 0;
    ManualClock* slows = nullptr;  // on which every message takes a millisecond

private:
    bool farewell() override { return turns_to_leave-- <= 0; }
    Turn onAlarm() override { kx_error("as asked"); }

    Verdict handle_message(std::uint8_t opcode, kx_memory_file& payload) override {
        ++handled;
        if (slows != nullptr) slows->advance(std::chrono::milliseconds(1));
        if (opcode == kRefuse) return Verdict::close;
        if (opcode == kPause) pause();
        if (opcode == kRaiseLater) setAlarm(share()->clock().now());
        if (opcode == kInPlace || opcode == kAbandon) {
            Reply reply(*this, static_cast<Opcode>(opcode));
            write_bytes(reply.body(), payload.take(payload.remaining()));
            if (opcode == kInPlace) reply.finish();
            return Verdict::keep;
        }
        Packet packet(1);
        write_8(packet.body(), opcode);
        write_bytes(packet.body(), payload.take(payload.remaining()));
        packet.finish();
        if (opcode == kShare) {
            send(std::make_shared<const Packet>(std::move(packet)));
        } else {
            send(packet);
        }
        return Verdict::keep;
    }

    int& alive_;
};

std::shared_ptr<const Packet> shared_packet(std::size_t payload) {
    Packet packet(1);
    write_bytes(packet.body(), Bytes(payload));
    packet.finish();
    return std::make_shared<const Packet>(std::move(packet));
}

class ConnectionTest : public PoolFixture {
protected:
    void SetUp() override {
        auto ends = make_pair();
        peer_ = std::move(ends[0]);
        auto connection = std::make_unique<EchoConnection>(std::move(ends[1]), pool_, alive_);
        connection_ = connection.get();
        pool_.add(std::move(connection));
        settle();
    }
    void TearDown() override {
        pool_.delete_all();
        EXPECT_EQ(alive_, 0);
    }

    int alive_ = 0;
    std::unique_ptr<kx_tcpip_socket> peer_;
    EchoConnection* connection_ = nullptr;
};

TEST_F(ConnectionTest, EveryWayToReplyKeepsTheOrderAndAnAbandonedReplyWasNeverThere) {
    Bytes all;
    Bytes expected;
    for (int i = 0; i < 40; ++i) {
        const char kind = "AIeSAISI"[i % 8];
        const Bytes one = frame_of(kind + std::to_string(i));
        all.insert(all.end(), one.begin(), one.end());
        if (kind != 'A') expected.insert(expected.end(), one.begin(), one.end());
    }
    write_all(*peer_, all);
    settle();
    EXPECT_EQ(read_all(*peer_), expected);
}

TEST_F(ConnectionTest, WhilePausedNothingMoreIsHandled) {
    const Bytes rest = frame_of("after");
    write_all(*peer_, in_a_row({frame_of("P"), rest, Bytes(rest.begin(), rest.begin() + 3)}));
    settle();
    write_all(*peer_, Bytes(rest.begin() + 3, rest.end()));
    settle();
    EXPECT_EQ(connection_->handled, 1);
    connection_->go_on();
    settle();
    EXPECT_EQ(connection_->handled, 3);
    EXPECT_EQ(read_all(*peer_).size(), frame_of("P").size() + 2 * rest.size());
}

TEST_F(ConnectionTest, WhatADeadlineRaisesEndsNeitherTheTaskNorItsWorker) {
    for (const char* payload : {"L", "after"}) {
        write_all(*peer_, frame_of(payload));
        settle();
    }
    EXPECT_EQ(connection_->handled, 2);
}

TEST_F(ConnectionTest, OtherThreadsReachASleepingWorker) {
    const auto shared = shared_packet(3);
    std::atomic<bool> stop = false;
    std::thread worker([&] {
        while (!stop)
            share_.run_once();
    });
    std::size_t got = 0;
    for (int i = 0; i < 1000; ++i) {
        connection_->send(shared);
        if (i % 100 == 99) {
            while (got < static_cast<std::size_t>(i + 1) * 8) {
                static_cast<void>(peer_->wait_ready(kReadable, 1000));
                got += read_all(*peer_).size();
            }
        }
    }
    connection_->close();
    bool closed = false;
    while (!closed) {
        static_cast<void>(peer_->wait_ready(kReadable, 1000));
        read_all(*peer_, &closed);
    }
    stop = true;
    share_.wake();
    worker.join();
    EXPECT_EQ(got, 8000U);
    EXPECT_EQ(alive_, 0);
}

TEST_F(ConnectionTest, WhatOthersSendToOneWhoNeverReadsIsBounded) {
    const auto shared = shared_packet(1024 * 1024);
    for (int i = 0; i < 40 && alive_ == 1; ++i) {
        connection_->send(shared);
        share_.run_once(std::chrono::nanoseconds(0));
    }
    EXPECT_EQ(alive_, 0);
}

TEST_F(ConnectionTest, WhoAsksForLittleWaitsForOneOfThoseWhoAskForMuch) {
    constexpr int kMany = 40;
    const std::vector<Bytes> much(kMany, frame_of(std::string(1000, 'e')));
    std::vector<std::unique_ptr<kx_tcpip_socket>> peers;
    std::vector<EchoConnection*> greedy;
    for (int i = 0; i < 3; ++i) {
        auto ends = make_pair();
        auto connection = std::make_unique<EchoConnection>(std::move(ends[1]), pool_, alive_);
        connection->slows = &clock_;
        greedy.push_back(connection.get());
        peers.push_back(std::move(ends[0]));
        pool_.add(std::move(connection));
    }
    settle();
    for (const auto& peer : peers)
        write_all(*peer, in_a_row(much));
    const auto handled = [&] {
        int sum = 0;
        for (const EchoConnection* connection : greedy)
            sum += connection->handled;
        return sum;
    };
    share_.run_once(std::chrono::nanoseconds(0));
    const int first_turns = handled();
    EXPECT_GT(first_turns, 0);
    EXPECT_LT(first_turns, 3 * kMany);

    const Bytes little = frame_of("little");
    write_all(*peer_, little);
    share_.run_once(std::chrono::nanoseconds(0));
    EXPECT_EQ(read_all(*peer_), little);
    EXPECT_EQ(handled(), first_turns + first_turns / 3);
    settle();
    for (const auto& peer : peers)
        EXPECT_EQ(read_all(*peer), in_a_row(much));
}

TEST_F(ConnectionTest, ALongFarewellKeepsNeitherThePeerNorTheNeighboursWaiting) {
    auto ends = make_pair();
    pool_.add(std::make_unique<EchoConnection>(std::move(ends[1]), pool_, alive_));
    settle();
    connection_->turns_to_leave = 10;
    write_all(*peer_, frame_of("X"));
    std::thread([&] { connection_->post(); }).join();
    share_.run_once(std::chrono::nanoseconds(0));
    bool closed = false;
    read_all(*peer_, &closed);
    EXPECT_TRUE(closed);
    EXPECT_EQ(alive_, 2);

    connection_->post();  // what others still leave for it is of no use, and does no harm
    connection_->close();
    const Bytes asked = frame_of("neighbour");
    write_all(*ends[0], asked);
    share_.run_once(std::chrono::nanoseconds(0));
    EXPECT_EQ(read_all(*ends[0]), asked);
    EXPECT_EQ(alive_, 2);
    settle();
    EXPECT_EQ(alive_, 1);
}

}  // namespace
}  // namespace vorrim
