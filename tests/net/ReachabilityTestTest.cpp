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

    void start(std::uint16_t port) {
        pool_.add(std::make_unique<Starter>(pool_, [this, port] {
            ReachabilityTest::start(pool_, kLoopback, port, kLimit, slot_,
                                    [this](bool reachable) { outcome_ = reachable; });
        }));
        settle();
    }

    ReachabilityTest* slot_ = nullptr;
    std::optional<bool> outcome_;
};

TEST_F(ReachabilityTestTest, SucceedsOnlyWhenTheConnectionWasMade) {
    const auto listener = net_.listen(0, 0, SocketType::stream);
    const std::uint16_t port = listener->local_address()->get_port();
    start(port);
    EXPECT_EQ(outcome_, true);
    EXPECT_EQ(slot_, nullptr);

    // A refused connect shows as writable as well.
    outcome_.reset();
    listener->close();
    start(port);
    EXPECT_EQ(outcome_, false);
}

TEST_F(ReachabilityTestTest, APeerThatDropsEverythingCountsAsUnreachableAtTheDeadline) {
    // A listener whose backlog is full answers no further connect.
    kx_tcpip_socket listener(SocketType::stream);
    kx_ip_address any(kLoopback, 0);
    ASSERT_EQ(::bind(listener.handle(), reinterpret_cast<const sockaddr*>(&any.endpoint()),
                     sizeof(sockaddr_in)),
              0);
    ASSERT_EQ(::listen(listener.handle(), 0), 0);
    const std::uint16_t port = listener.local_address()->get_port();
    std::vector<std::unique_ptr<kx_net_socket>> filling;
    for (int i = 0; i < 3; ++i) {
        filling.push_back(net_.connect(kx_ip_address(kLoopback, port), SocketType::stream,
                                       ConnectMode::non_blocking));
    }
    start(port);
    EXPECT_FALSE(outcome_.has_value());
    ASSERT_NE(slot_, nullptr);
    clock_.advance(kLimit - std::chrono::milliseconds(1));
    settle();
    EXPECT_FALSE(outcome_.has_value());
    clock_.advance(std::chrono::milliseconds(1));
    settle();
    EXPECT_EQ(outcome_, false);
    EXPECT_EQ(share_.load(), 0U);

    outcome_.reset();
    start(port);
    ASSERT_NE(slot_, nullptr);
    slot_->abandon();
    settle();
    EXPECT_FALSE(outcome_.has_value());
    EXPECT_EQ(share_.load(), 0U);
}

}  // namespace
}  // namespace vorrim
