// The limits one by one, on a clock that the test moves. What they do to a real server is in the
// wire tests.
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <string>
#include <string_view>
#include <vector>

#include "meta/ClientId.h"
#include "net/AddressGate.h"
#include "net/LimitLog.h"
#include "net/NetworkList.h"
#include "tests/base/RecordingOutput.h"
#include "tests/net/EchoFixture.h"

namespace vorrim {
namespace {

using namespace std::chrono_literals;

TEST(NetworkListTest, ReadsNetworksAndPassesOverWhatIsNone) {
    NetworkList networks;
    std::vector<std::string> refused;
    networks.add_all("10.1.2.3/8, 192.168.7.0/24 1.2.3.4,,5.6.7.8/33 1.2.3 1.2.3.4/ 1.2.3.256 a",
                     [&](std::string_view text) { refused.emplace_back(text); });
    EXPECT_EQ(refused,
              (std::vector<std::string>{"5.6.7.8/33", "1.2.3", "1.2.3.4/", "1.2.3.256", "a"}));
    for (const char* inside : {"10.0.0.0", "10.255.255.255", "192.168.7.200", "1.2.3.4"})
        EXPECT_TRUE(networks.contains(textToIp(inside))) << inside;
    for (const char* outside : {"11.0.0.0", "9.255.255.255", "192.168.8.0", "1.2.3.5", "5.6.7.8"})
        EXPECT_FALSE(networks.contains(textToIp(outside))) << outside;
    EXPECT_FALSE(NetworkList().contains(textToIp("127.0.0.1")));
    ASSERT_TRUE(networks.add("0.0.0.0/0"));
    EXPECT_TRUE(networks.contains(textToIp("255.255.255.255")));
}

TEST(LimitLogTest, EachLimitIsSaidAtMostOnceAMinuteWithItsCount) {
    RecordingOutput output;
    ManualClock clock;
    LimitLog log;
    log.report(clock.now());
    EXPECT_EQ(output.take(), "");
    log.count(Limit::logins, 3);
    log.count(Limit::flood);
    log.report(clock.now());
    EXPECT_EQ(output.take(),
              "Limit: logins slowed down: 3 (3 since the start)\n"
              "Limit: connections closed for going on too fast: 1 (1 since the start)\n");
    log.count(Limit::logins, 2);
    clock.advance(LimitLog::kPause - 1ns);
    log.report(clock.now());
    EXPECT_EQ(output.take(), "");
    clock.advance(1ns);
    log.report(clock.now());
    EXPECT_EQ(output.take(), "Limit: logins slowed down: 2 (5 since the start)\n");
    log.count(Limit::logins);
    log.report(std::nullopt);  // the last one
    EXPECT_EQ(output.take(), "Limit: logins slowed down: 1 (6 since the start)\n");
}

TEST(AddressGateTest, CountsConnectionsAndNewOnesPerAddressAndForgetsWhoIsGone) {
    using Answer = AddressGate::Answer;
    ManualClock clock;
    AddressGate gate;
    gate.set_limits(2, 60);
    EXPECT_EQ(gate.admit(7, clock.now()), Answer::welcome);
    EXPECT_EQ(gate.admit(7, clock.now()), Answer::welcome);
    EXPECT_EQ(gate.admit(7, clock.now()), Answer::too_many);
    EXPECT_EQ(gate.admit(8, clock.now()), Answer::welcome);
    gate.leave(7);
    for (int i = 2; i < 60; ++i) {
        EXPECT_EQ(gate.admit(7, clock.now()), Answer::welcome) << i;
        gate.leave(7);
    }
    EXPECT_EQ(gate.admit(7, clock.now()), Answer::too_fast);
    clock.advance(1s);  // 60 a minute
    EXPECT_EQ(gate.admit(7, clock.now()), Answer::welcome);
    gate.leave(7);
    EXPECT_EQ(gate.admit(7, clock.now()), Answer::too_fast);
    // The other door's worker looked at the clock a little earlier.
    EXPECT_EQ(gate.admit(7, clock.now() - 1ms), Answer::too_fast);

    // A flood of addresses that knock once does not stay in memory.
    for (std::uint32_t address = 100; address < 300'000; ++address) {
        EXPECT_EQ(gate.admit(address, clock.now()), Answer::welcome);
        gate.leave(address);
    }
    EXPECT_LT(gate.remembered(), 3 * AddressGate::kMostRemembered);
    for (std::uint32_t address = 300'000; gate.remembered() > 2000; ++address) {
        ASSERT_LT(address, 600'000U);
        static_cast<void>(gate.admit(address, clock.now()));
        gate.leave(address);
        clock.advance(1s);
    }
    EXPECT_EQ(gate.admit(7, clock.now()), Answer::welcome);  // its other one is still counted
    EXPECT_EQ(gate.admit(7, clock.now()), Answer::too_many);
}

class LimitedConnectionTest : public EchoFixture {
protected:
    void SetUp() override {
        limits_.strangers = true;
        limits_.first_packet = 60s;
        limits_.packet = 120s;
        limits_.stalled_send = 30s;
        limits_.flood = 300s;
        limits_.request_rates[static_cast<std::size_t>(Request::search)] = 60;
        EchoFixture::SetUp();
    }

    void send_part(const std::string& payload, std::size_t begin, std::size_t end) {
        const Bytes all = frame_of(payload);
        peer_->bring(std::span(all).subspan(begin, end - begin));
        settle();
    }
    void send(const std::string& payload) { send_part(payload, 0, payload.size() + kHeaderSize); }
    void pass(std::chrono::nanoseconds time) {
        clock_.advance(time);
        settle();
    }
    bool closed() { return peer_->closed; }
    std::uint64_t count(Limit limit) const { return limits_.log.total(limit); }
};

TEST_F(LimitedConnectionTest, WhoNeverFinishesAPacketIsClosedAndWhoHasSpokenMayBeSilent) {
    send_part("half a packet", 0, 9);
    pass(60s - 1ns);
    EXPECT_FALSE(closed());
    pass(1ns);
    EXPECT_TRUE(closed());
    EXPECT_EQ(count(Limit::first_packet), 1U);

    connect();
    pass(59s);
    send("whole");
    pass(1000h);
    EXPECT_FALSE(closed());
    send_part("half", 0, 2);
    pass(119s);
    send_part("half", 2, 9);
    pass(1000h);
    // Several in pieces, one behind the other: each has its own time.
    for (int i = 0; i < 5; ++i) {
        send_part("half", 0, 6);
        pass(100s);
        send_part("half", 6, 9);
    }
    EXPECT_FALSE(closed());
    EXPECT_EQ(all_.handled, 7);
    send_part("half", 0, 8);
    pass(120s - 1ns);
    EXPECT_FALSE(closed());
    pass(1ns);
    EXPECT_TRUE(closed());
    EXPECT_EQ(count(Limit::packet_time), 1U);
}

TEST_F(LimitedConnectionTest, LongPacketsAreForThoseWhoHaveLoggedIn) {
    const std::string longest(kMaxPayloadOfStrangers, 'e');
    send(longest);
    send_part(longest + 'e', 0, kHeaderSize - 1);
    EXPECT_FALSE(closed());
    send_part(longest + 'e', kHeaderSize - 1, kHeaderSize);
    EXPECT_TRUE(closed());
    connect();
    send_part(longest + 'e', 0, kHeaderSize);
    EXPECT_TRUE(closed());
    EXPECT_EQ(count(Limit::packet_size), 2U);
    EXPECT_EQ(all_.handled, 1);

    connect();
    send("L");
    send(longest + longest);
    EXPECT_EQ(all_.handled, 3);
    EXPECT_FALSE(closed());
}

TEST_F(LimitedConnectionTest, WhoDoesNotReadIsClosedAfterATimeOrWithTooMuchUnread) {
    peer_->listen(200'000);
    for (int i = 0; i < 30; ++i)
        send("E" + std::string(1000, 'e'));  // some 100 KB each
    const int handled = all_.handled;
    EXPECT_LT(handled, 30);
    pass(29s);
    EXPECT_EQ(peer_->take().size(), 200'000U);  // time starts again
    settle();
    pass(29s);
    EXPECT_EQ(count(Limit::send_stall), 0U);
    pass(1s);
    EXPECT_EQ(count(Limit::send_stall), 1U);
    EXPECT_TRUE(closed());

    // What others send is bounded beside the one reply that may be in flight.
    connect();
    peer_->listen(0);
    send("L");
    send("E" + std::string(50'000, 'e'));
    const auto text = std::make_shared<const Packet>(Packet(100'000));
    for (int i = 0; i < 10; ++i)
        connection_->send(text);
    settle();
    EXPECT_EQ(count(Limit::send_queue), 0U);
    for (int i = 0; i < 3; ++i)
        connection_->send(text);
    settle();
    EXPECT_EQ(count(Limit::send_queue), 1U);
    EXPECT_TRUE(closed());
}

TEST_F(LimitedConnectionTest, WhoAsksTooFastIsReadMoreSlowlyAndClosedOnlyAfterALongTime) {
    for (int i = 0; i < 62; ++i)
        send("Q");
    EXPECT_EQ(all_.handled, 61);
    pass(1s - 1ns);
    EXPECT_EQ(all_.handled, 61);
    pass(1ns);
    EXPECT_EQ(all_.handled, 62);
    // However late it is asked for, the next one comes in its time.
    pass(1500ms);
    send("Q");
    send("Q");
    pass(500ms - 1ns);
    EXPECT_EQ(all_.handled, 63);
    pass(1ns);
    EXPECT_EQ(all_.handled, 64);
    // Part of a packet that waits behind the pause is not held against the peer.
    send_part("Q", 0, 5);
    pass(10s);
    send_part("Q", 5, 6);
    EXPECT_EQ(count(Limit::searches), 4U);
    // The longest silence is worth a minute.
    pass(24h * 40);
    all_.handled = 0;
    while (count(Limit::searches) == 4)
        send("Q");
    EXPECT_EQ(all_.handled, 8 + 60 + 1)
        << "what was left, a minute's worth, the one that is slowed";
    pass(10min);
    EXPECT_FALSE(closed());

    bool end = false;
    for (int i = 0; i < 400 && !end; ++i) {
        for (int k = 0; k < 2; ++k)
            send("Q");
        pass(1s);
        end = closed();
        EXPECT_TRUE(!end || i >= 299) << i;
    }
    EXPECT_TRUE(end);
    EXPECT_EQ(count(Limit::flood), 1U);
}

TEST(PlaceCountersTest, APlaceGetsItsBurstThenItsRateAndNetworksSeveralTimesThat) {
    ManualClock clock;
    PlaceCounters counters;
    counters.set_limits(1000, 5000, 42);
    const std::uint32_t target = textToIp("9.8.7.6");
    const auto takes = [&](std::uint32_t address, std::uint32_t amount) {
        return counters.take(address, amount, clock.now());
    };
    EXPECT_TRUE(takes(target, 4000));
    EXPECT_FALSE(takes(target, 1001));
    EXPECT_TRUE(takes(target, 1000));
    EXPECT_FALSE(counters.has_room(target, clock.now()));
    EXPECT_TRUE(takes(textToIp("9.8.7.7"), 5000));
    clock.advance(500ms);
    EXPECT_TRUE(takes(target, 500));
    EXPECT_FALSE(takes(target, 1));

    // All addresses of a network together: 16 bursts for a /24, 256 for a /16.
    const auto fill = [&](std::uint32_t first, std::uint32_t count, std::uint32_t step) {
        int bursts = 0;
        for (std::uint32_t i = 0; i < count; ++i)
            bursts += takes(__builtin_bswap32(__builtin_bswap32(first) + i * step), 5000);
        return bursts;
    };
    clock.advance(1h);
    EXPECT_EQ(fill(textToIp("20.1.1.0"), 256, 1), 16);
    EXPECT_EQ(fill(textToIp("20.2.0.0"), 8 * 256, 1), 64);
    EXPECT_EQ(fill(textToIp("20.3.0.0"), 65'536, 1), 256);
    // A flood that seems to come from everywhere leaves those it does not name alone.
    EXPECT_GT(fill(textToIp("30.0.0.0"), 20'000, 65'537), 15'000);
    EXPECT_TRUE(takes(target, 5000));
    EXPECT_TRUE(PlaceCounters().take(target, 1'000'000, clock.now()));  // no limit
}

TEST(KeepAliveTest, TheDeadAreFoundByKeepAlive) {
    kx_tcpip_protocol net;
    const auto listener = net.listen(0, 0, SocketType::stream);
    const auto peer =
        net.connect(kx_ip_address(textToIp("127.0.0.1"), listener->local_address()->get_port()),
                    SocketType::stream, ConnectMode::blocking);
    std::unique_ptr<kx_net_socket> accepted;
    ASSERT_EQ(listener->wait_ready(kReadable, 5000), kReadable);
    ASSERT_EQ(listener->accept(accepted), AcceptResult::accepted);
    int on = 0;
    int idle = 0;
    socklen_t size = sizeof(int);
    ::getsockopt(accepted->handle(), SOL_SOCKET, SO_KEEPALIVE, &on, &size);
    ::getsockopt(accepted->handle(), IPPROTO_TCP, TCP_KEEPIDLE, &idle, &size);
    EXPECT_EQ(on, 1);
    EXPECT_EQ(idle, 300);
}

TEST_F(LimitedConnectionTest, ExemptNetworksHaveNoLimits) {
    ASSERT_TRUE(limits_.exempt.add("0.0.0.0/0"));
    connect();
    send(std::string(4 * kMaxPayloadOfStrangers, 'e'));
    for (int i = 0; i < 200; ++i)
        send("Q");
    send_part("half", 0, 6);
    pass(1000h);
    EXPECT_EQ(all_.handled, 201);
    EXPECT_FALSE(closed());
    // A length that nobody may send is no limit that somebody has reached.
    connect();
    peer_->bring(Bytes(5, std::byte{0xE3}));
    settle();
    EXPECT_TRUE(closed());
    EXPECT_EQ(count(Limit::packet_size), 0U);
}

}  // namespace
}  // namespace vorrim
