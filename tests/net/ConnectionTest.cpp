#include <atomic>
#include <functional>
#include <thread>

#include "base/kx_err.h"
#include "net/Connection.h"
#include "tests/net/PoolFixture.h"

namespace vorrim {
namespace {

// Answers every packet with the same packet; some opcodes do something else.
class EchoConnection final : public Connection {
public:
    static constexpr std::uint8_t kPause = 'P';
    static constexpr std::uint8_t kRaise = 'R';
    static constexpr std::uint8_t kRefuse = 'X';
    static constexpr std::uint8_t kFlood = 'F';
    static constexpr std::uint8_t kRaiseLater = 'L';

    EchoConnection(std::unique_ptr<kx_net_socket> socket, socketPool& pool, int& alive)
        : Connection(std::move(socket), pool), alive_(alive) {
        ++alive_;
    }
    ~EchoConnection() override { --alive_; }

    void go_on() { resume(); }
    int handled = 0;
    int turns_to_leave = 0;

private:
    bool farewell() override { return turns_to_leave-- <= 0; }
    Turn onAlarm() override { kx_error("as asked"); }

    Verdict handle_message(std::uint8_t opcode, kx_memory_file& payload) override {
        ++handled;
        if (opcode == kRaise) kx_error("as asked");
        if (opcode == kRefuse) return Verdict::close;
        if (opcode == kPause) pause();
        if (opcode == kRaiseLater) setAlarm(share()->clock().now());
        Packet packet(1);
        write_8(packet.body(), opcode);
        write_bytes(packet.body(), payload.take(payload.remaining()));
        if (opcode == kFlood) write_bytes(packet.body(), Bytes(100'000));
        packet.finish();
        send(packet);
        return Verdict::keep;
    }

    int& alive_;
};

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

TEST_F(ConnectionTest, PipelinedPacketsAreAnsweredInOrderWithoutWaiting) {
    Bytes all;
    for (int i = 0; i < 200; ++i) {
        const Bytes one = frame_of("e" + std::to_string(i));
        all.insert(all.end(), one.begin(), one.end());
    }
    write_all(*peer_, all);
    settle();
    EXPECT_EQ(read_all(*peer_), all);
}

TEST_F(ConnectionTest, APacketThatArrivesByteByByteIsOnePacket) {
    const Bytes packet = frame_of("hello");
    for (const std::byte byte : packet) {
        EXPECT_TRUE(read_all(*peer_).empty());
        write_all(*peer_, {byte});
        settle();
    }
    EXPECT_EQ(read_all(*peer_), packet);
    EXPECT_EQ(connection_->handled, 1);
}

TEST_F(ConnectionTest, WhilePausedNothingMoreIsHandled) {
    Bytes all = frame_of("P");
    const Bytes rest = frame_of("after");
    all.insert(all.end(), rest.begin(), rest.end());
    all.insert(all.end(), rest.begin(), rest.begin() + 3);
    write_all(*peer_, all);
    settle();
    write_all(*peer_, Bytes(rest.begin() + 3, rest.end()));
    settle();
    EXPECT_EQ(connection_->handled, 1);
    connection_->go_on();
    settle();
    EXPECT_EQ(connection_->handled, 3);
    EXPECT_EQ(read_all(*peer_).size(), frame_of("P").size() + 2 * rest.size());
}

TEST_F(ConnectionTest, APeerThatDoesNotReadIsServedNoFurtherUntilItDoes) {
    Bytes all;
    constexpr int kRequests = 200;  // 20 MB of replies
    for (int i = 0; i < kRequests; ++i) {
        const Bytes one = frame_of("F");
        all.insert(all.end(), one.begin(), one.end());
    }
    write_all(*peer_, all);
    settle();
    EXPECT_LT(connection_->handled, 40);
    std::size_t got = 0;
    const std::size_t expected = kRequests * (frame_of("F").size() + 100'000);
    for (int i = 0; i < 1000 && got < expected; ++i) {
        got += read_all(*peer_).size();
        settle();
    }
    EXPECT_EQ(connection_->handled, kRequests);
    EXPECT_EQ(got, expected);
}

TEST_F(ConnectionTest, RefusalFailureAndGarbageCloseButEarlierAnswersArrive) {
    const Bytes asked = frame_of("first");
    for (const Bytes& end :
         {frame_of("X"), frame_of("R"), Bytes(5, std::byte{0x11}),
          Bytes{std::byte{0xE3}, std::byte{}, std::byte{}, std::byte{}, std::byte{}}}) {
        auto ends = make_pair();
        pool_.add(std::make_unique<EchoConnection>(std::move(ends[1]), pool_, alive_));
        Bytes all = asked;
        all.insert(all.end(), end.begin(), end.end());
        write_all(*ends[0], all);
        settle();
        bool closed = false;
        EXPECT_EQ(read_all(*ends[0], &closed), asked);
        EXPECT_TRUE(closed);
        EXPECT_EQ(alive_, 1);
    }
}

TEST_F(ConnectionTest, WhatADeadlineRaisesEndsNeitherTheTaskNorItsWorker) {
    write_all(*peer_, frame_of("L"));
    settle();
    write_all(*peer_, frame_of("after"));
    settle();
    EXPECT_EQ(connection_->handled, 2);
}

TEST_F(ConnectionTest, APeerThatStopsSendingStillGetsItsAnswer) {
    const Bytes asked = frame_of("last words");
    write_all(*peer_, asked);
    ::shutdown(peer_->handle(), SHUT_WR);
    settle();
    bool closed = false;
    EXPECT_EQ(read_all(*peer_, &closed), asked);
    EXPECT_TRUE(closed);
    EXPECT_EQ(alive_, 0);
}

TEST_F(ConnectionTest, OtherThreadsReachASleepingWorker) {
    const auto shared = [] {
        Packet packet(3);
        write_bytes(packet.body(), std::as_bytes(std::span("abc", 3)));
        return std::make_shared<const Packet>(std::move(packet));
    }();
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
    const auto shared = [] {
        Packet packet(1);
        write_bytes(packet.body(), Bytes(1024 * 1024));
        packet.finish();
        return std::make_shared<const Packet>(std::move(packet));
    }();
    for (int i = 0; i < 40 && alive_ == 1; ++i) {
        connection_->send(shared);
        share_.run_once(std::chrono::nanoseconds(0));
    }
    EXPECT_EQ(alive_, 0);
}

TEST_F(ConnectionTest, ALongFarewellKeepsNeitherThePeerNorTheNeighboursWaiting) {
    auto ends = make_pair();
    pool_.add(std::make_unique<EchoConnection>(std::move(ends[1]), pool_, alive_));
    settle();
    connection_->turns_to_leave = 10;
    write_all(*peer_, frame_of("X"));
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

TEST_F(ConnectionTest, ATaskMayGoWhileOthersHavePostedIt) {
    write_all(*peer_, frame_of("X"));
    std::thread([&] { connection_->post(); }).join();
    settle();
    EXPECT_EQ(alive_, 0);
}

}  // namespace
}  // namespace vorrim
