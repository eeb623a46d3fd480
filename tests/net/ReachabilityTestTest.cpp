#include <optional>
#include <sys/socket.h>

#include "net/ReachabilityTest.h"
#include "net/kx_net.h"
#include "tests/net/PoolFixture.h"

namespace vorrim {
namespace {

constexpr std::uint32_t kLoopback = 0x0100007F;
constexpr std::chrono::milliseconds kLimit{8000};

// Starts tests from within a turn, as a login does.
class Starter final : public Task {
public:
    Starter(socketPool& pool, std::function<void()> work)
        : Task(nullptr, pool), work_(std::move(work)) {}
    Turn doTask(socketPool&) override {
        work_();
        return Turn::finished;
    }

private:
    std::function<void()> work_;
};

using ReachabilityTestTest = PoolFixture;

TEST_F(ReachabilityTestTest, OnlySoManyAreUnderWayAndTheOthersWaitTheirTurn) {
    limits_.reachability.set_limits(2, 1);
    limits_.reach_lowest_port = 2;
    ASSERT_TRUE(limits_.unreachable.add("10.0.0.0/8"));

    struct Client {
        ReachabilityTest* test = nullptr;
        std::optional<bool> reachable;
    };
    std::array<Client, 6> clients;
    using Reach = MemoryNet::Reach;
    const auto test = [&](std::size_t i, std::uint32_t address, Reach reach,
                          std::uint16_t port = 4662) {
        net_.reach = reach;
        pool_.add(std::make_unique<Starter>(pool_, [&, i, address, port] {
            ReachabilityTest::start(pool_, address, port, kLimit, clients[i].test,
                                    [&, i](bool reachable) { clients[i].reachable = reachable; });
        }));
        settle();
    };
    const auto nth = [](unsigned n) { return kLoopback + (n << 24U); };  // 127.0.0.1 + n
    test(0, nth(0), Reach::hangs);
    test(1, nth(0), Reach::stands);  // one too many for its address
    test(2, nth(1), Reach::hangs);
    test(3, nth(2), Reach::stands);  // one too many altogether
    for (const std::size_t i : {0U, 1U, 2U, 3U})
        EXPECT_TRUE(clients[i].test != nullptr && !clients[i].reachable.has_value()) << i;
    clock_.advance(std::chrono::milliseconds(10));
    clients[2].test->abandon();
    settle();
    EXPECT_EQ(clients[3].reachable, true);
    EXPECT_FALSE(clients[1].reachable.has_value());

    // What waits to the end of its time counts as unreachable.
    test(4, nth(0), Reach::stands);
    clients[0].test->abandon();
    settle();
    EXPECT_EQ(clients[1].reachable, true);
    EXPECT_EQ(clients[4].reachable, true);
    test(0, nth(0), Reach::hangs);
    clock_.advance(std::chrono::milliseconds(1));
    test(5, nth(0), Reach::stands);
    clock_.advance(kLimit - std::chrono::milliseconds(2));
    settle();
    EXPECT_FALSE(clients[5].reachable.has_value());
    EXPECT_EQ(limits_.log.total(Limit::reach_waits), 0U);
    clock_.advance(std::chrono::milliseconds(2));
    settle();
    EXPECT_EQ(clients[5].reachable, false);
    EXPECT_EQ(limits_.log.total(Limit::reach_waits), 1U);
    EXPECT_EQ(share_.load(), 0U);

    test(0, nth(0), Reach::refused);
    test(1, nth(0), Reach::stands, 1);  // below the lowest port
    test(2, 0x0101010A, Reach::stands);
    test(3, nth(0), Reach::stands, 0);
    for (const std::size_t i : {0U, 1U, 2U, 3U})
        EXPECT_EQ(clients[i].reachable, false) << i;
    EXPECT_EQ(limits_.log.total(Limit::reach_refusals), 2U) << "port 0 is no offence";
}

TEST(Connect, IsMadeAlsoWhenThePeerDropsItAtOnceAndNotWhenItRefuses) {
    constexpr int kPatience = 20'000;  // ms; only failures take this long
    kx_tcpip_protocol net;
    const auto door = net.listen(0, 0, SocketType::stream);
    ASSERT_NE(door, nullptr);
    const kx_ip_address there(kLoopback, door->local_address()->get_port());
    for (const bool says_end : {false, true}) {
        const auto caller = net.connect(there, SocketType::stream, ConnectMode::non_blocking);
        std::unique_ptr<kx_net_socket> taken;
        ASSERT_EQ(door->wait_ready(kReadable, kPatience), kReadable);
        ASSERT_EQ(door->accept(taken), AcceptResult::accepted);
        if (says_end) {
            ::shutdown(taken->handle(), SHUT_WR);
            ASSERT_EQ(caller->wait_ready(kReadable, kPatience), kReadable);
        }
        const linger at_once{1, 0};
        ::setsockopt(taken->handle(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        taken->close();
        ASSERT_EQ(caller->wait_ready(kException, kPatience), kException);
        EXPECT_TRUE(caller->connected());
    }
    door->close();
    const auto caller = net.connect(there, SocketType::stream, ConnectMode::non_blocking);
    ASSERT_EQ(caller->wait_ready(kException, kPatience), kException);
    EXPECT_FALSE(caller->connected());
}

}  // namespace
}  // namespace vorrim
