#include <optional>

#include "net/ReachabilityTest.h"
#include "tests/net/PoolFixture.h"

namespace vorrim {
namespace {

constexpr std::uint32_t kLoopback = 0x0100007F;
constexpr std::chrono::milliseconds kLimit{8000};

class ReachabilityTestTest : public PoolFixture {
protected:
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

    // A listener whose backlog is full answers no further connect.
    std::uint16_t silent_port() {
        const kx_ip_address any(0, 0);
        EXPECT_EQ(::bind(silent_.handle(), reinterpret_cast<const sockaddr*>(&any.endpoint()),
                         sizeof(sockaddr_in)),
                  0);
        EXPECT_EQ(::listen(silent_.handle(), 0), 0);
        const std::uint16_t port = silent_.local_address()->get_port();
        for (auto& filler : filling_)
            filler = net_.connect(kx_ip_address(kLoopback, port), SocketType::stream,
                                  ConnectMode::non_blocking);
        return port;
    }

    kx_tcpip_socket silent_{SocketType::stream};
    std::array<std::unique_ptr<kx_net_socket>, 3> filling_;
};

TEST_F(ReachabilityTestTest, OnlySoManyAreUnderWayAndTheOthersWaitTheirTurn) {
    limits_.reachability.set_limits(2, 1);
    limits_.reach_lowest_port = 2;
    ASSERT_TRUE(limits_.unreachable.add("10.0.0.0/8"));
    const std::uint16_t port = silent_port();

    struct Client {
        ReachabilityTest* test = nullptr;
        std::optional<bool> reachable;
    };
    std::array<Client, 6> clients;
    const auto test = [&](std::size_t i, std::uint32_t address, std::uint16_t to) {
        pool_.add(std::make_unique<Starter>(pool_, [&, i, address, to] {
            ReachabilityTest::start(pool_, address, to, kLimit, clients[i].test,
                                    [&, i](bool reachable) { clients[i].reachable = reachable; });
        }));
        settle();
    };
    const auto good = net_.listen(0, 0, SocketType::stream);
    const std::uint16_t open = good->local_address()->get_port();
    const auto nth = [](unsigned n) { return kLoopback + (n << 24U); };  // 127.0.0.1 + n
    test(0, nth(0), port);
    test(1, nth(0), open);  // one too many for its address
    test(2, nth(1), port);
    test(3, nth(2), open);  // one too many altogether
    for (const std::size_t i : {0U, 1U, 2U, 3U})
        EXPECT_TRUE(clients[i].test != nullptr && !clients[i].reachable.has_value()) << i;
    clock_.advance(std::chrono::milliseconds(10));
    clients[2].test->abandon();
    settle();
    EXPECT_EQ(clients[3].reachable, true);
    EXPECT_FALSE(clients[1].reachable.has_value());

    // What waits to the end of its time counts as unreachable.
    test(4, nth(0), open);
    clients[0].test->abandon();
    settle();
    EXPECT_EQ(clients[1].reachable, true);
    EXPECT_EQ(clients[4].reachable, true);
    test(0, nth(0), port);
    clock_.advance(std::chrono::milliseconds(1));
    test(5, nth(0), open);
    clock_.advance(kLimit - std::chrono::milliseconds(2));
    settle();
    EXPECT_FALSE(clients[5].reachable.has_value());
    EXPECT_EQ(limits_.log.total(Limit::reach_waits), 0U);
    clock_.advance(std::chrono::milliseconds(2));
    settle();
    EXPECT_EQ(clients[5].reachable, false);
    EXPECT_EQ(limits_.log.total(Limit::reach_waits), 1U);
    EXPECT_EQ(share_.load(), 0U);

    for (const auto& [address, to] :
         {std::pair{nth(0), std::uint16_t{1}}, std::pair{std::uint32_t{0x0101010A}, open},
          std::pair{nth(0), std::uint16_t{0}}}) {
        clients[0].reachable.reset();
        test(0, address, to);
        EXPECT_EQ(clients[0].reachable, false);
    }
    EXPECT_EQ(limits_.log.total(Limit::reach_refusals), 2U) << "port 0 is no offence";
}

}  // namespace
}  // namespace vorrim
