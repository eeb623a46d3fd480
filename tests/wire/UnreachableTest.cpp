// Logins towards addresses that never answer: they wait eight seconds, and nobody else does.
#include <poll.h>
#include <set>

#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

using Clock = std::chrono::steady_clock;

// A port on which every address of the loopback network lets a connection hang: one listener for
// all of them, whose backlog is full.
class BlackHole final {
public:
    BlackHole() {
        listener_.bind(kAnyAddress, 0);
        listener_.listen(0);
        constexpr int kEnough = 16;
        for (int i = 0; i < kEnough; ++i)
            if (!fill()) return;
        throw WireFailure("the backlog takes everything");
    }
    [[nodiscard]] std::uint16_t port() const { return listener_.port(); }

private:
    // False when the connection hangs.
    bool fill() {
        const Socket& filler =
            fillers_.emplace_back(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        const sockaddr_in name = endpoint(kLocalhost, port());
        ::connect(filler.descriptor(), reinterpret_cast<const sockaddr*>(&name), sizeof name);
        pollfd wait{filler.descriptor(), POLLOUT, 0};
        constexpr int kShort = 100;  // a made connection on this machine takes far less
        return ::poll(&wait, 1, kShort) > 0;
    }

    Socket listener_ = Socket::open(SOCK_STREAM);
    std::vector<Socket> fillers_;
};

Bytes login_through(std::uint16_t port, std::uint32_t number) {
    Record record = client_record(hash_of(number, 0xB1), "out of reach");
    record.port = port;
    return login(record);
}

// So many clients that have sent their login and wait.
std::vector<WireClient> waiting_crowd(const ServerProcess& server, const BlackHole& hole,
                                      std::uint32_t count, Address first = next_address()) {
    std::vector<WireClient> crowd;
    for (std::uint32_t i = 0; i < count; ++i) {
        crowd.emplace_back(server, i == 0 ? first : next_address());
        crowd.back().send(login_through(hole.port(), i));
    }
    server.wait_for_users(count);
    return crowd;
}

TEST(Unreachable, TheyWaitEightSecondsAndOthersDoNot) {
    constexpr std::uint32_t kCrowd = 50;
    const ServerProcess server("threads=2");
    const BlackHole hole;
    const auto start = Clock::now();
    const std::vector<WireClient> waiting = waiting_crowd(server, hole, kCrowd);
    for (const WireClient& client : waiting)
        client.send(callback(0x00ABCDEF));  // what is sent behind the login waits with it

    auto slowest = Clock::duration::zero();
    while (Clock::now() < start + std::chrono::seconds(6)) {
        const auto before = Clock::now();
        EXPECT_TRUE(WireClient::high(server).search(words("song")).records.empty());
        WireClient::low(server).expect_nothing();
        static_cast<void>(server.status());
        slowest = std::max(slowest, Clock::now() - before);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));  // leaves room for others
    }
    // Far below the eight seconds that a single one would cost if anybody waited for it; a busy
    // machine is forgiven.
    EXPECT_LT(slowest, std::chrono::seconds(4));

    std::set<std::uint32_t> ids;
    for (const WireClient& client : waiting) {
        ids.insert(Reader(client.receive(), 0x40).u32());
        EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(7900));
        EXPECT_EQ(client.receive().first(1), hex("38"));
        EXPECT_EQ(client.receive(), hex("36 EF CD AB 00"));
    }
    EXPECT_EQ(ids.size(), kCrowd);
    EXPECT_GT(*ids.begin(), 0U);
    EXPECT_LE(*ids.rbegin(), 0xFFFFFFU);
}

TEST(Unreachable, AnAddressUnderTestIsTaken) {
    const ServerProcess server("threads=1");  // which takes up the logins in their order
    const BlackHole hole;
    const Address shared = next_address();
    const WireClient first(server, shared);
    first.send(login_through(hole.port(), 1));
    server.wait_for_users(1);
    static_cast<void>(WireClient::low(server));
    WireClient second(server, shared);
    second.open_door();
    const auto start = Clock::now();
    EXPECT_EQ(second.login(client_record(hash_of(2), "second")).id >> 24U, 0U);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(4));
    EXPECT_TRUE(first.silent());
}

TEST(Unreachable, NeitherTheirLeavingNorAStopWaitsForThem) {
    ServerProcess server;
    const BlackHole hole;
    const Address shared = next_address();
    for (WireClient& client : waiting_crowd(server, hole, 20, shared))
        client.reset();
    server.wait_for_users(0);
    EXPECT_EQ(WireClient::high(server, "next", shared).id(), shared.value());
    server.wait_for_users(0);

    const std::vector<WireClient> crowd = waiting_crowd(server, hole, 20);
    const auto start = Clock::now();
    EXPECT_EQ(server.stop(SIGTERM), 1);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(6));
    for (const WireClient& client : crowd)
        client.expect_closed();
}

TEST(Unreachable, TheOperatorMayForbidPortsAndPrivateNetworks) {
    for (const char* settings : {"reachMinPort=65535", "reachPrivate=false"}) {
        ServerProcess server(settings);
        WireClient client(server);
        client.open_door();
        EXPECT_LT(client.login(client_record(hash_of(1), "open")).id, 0xFFFFFFU) << settings;
        server.stop(SIGTERM);
        EXPECT_NE(server.output().find("Limit: reachability tests not made"), std::string::npos);
    }
}

}  // namespace
}  // namespace vorrim::wire
