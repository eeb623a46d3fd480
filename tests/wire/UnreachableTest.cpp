// Logins towards addresses that never answer: they wait eight seconds, and nobody else does.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <iostream>
#include <poll.h>
#include <set>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <vector>

#include "tests/wire/harness/Datagram.h"
#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

using Clock = std::chrono::steady_clock;

// How many; VORRIM_UNREACHABLE=2000 shows it at full size.
std::size_t crowd_size() {
    constexpr std::size_t kOrdinary = 50;
    const char* wanted = std::getenv("VORRIM_UNREACHABLE");
    return wanted ? std::strtoul(wanted, nullptr, 10) : kOrdinary;
}

// A port on which every address of the loopback network lets a connection hang: one listener for
// all of them, whose backlog is full.
class BlackHole final {
public:
    BlackHole() {
        listener_.bind(Address(0, 0, 0, 0), 0);
        if (::listen(listener_.descriptor(), 0) != 0) throw WireFailure("listen");
        constexpr int kEnough = 16;
        for (int i = 0; i < kEnough; ++i)
            if (!fill()) return;
        throw WireFailure("the backlog takes everything");
    }
    [[nodiscard]] std::uint16_t port() const { return listener_.port(); }

private:
    // False when the connection hangs.
    bool fill() {
        Socket filler(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        const sockaddr_in name = endpoint(kLocalhost, port());
        ::connect(filler.descriptor(), reinterpret_cast<const sockaddr*>(&name), sizeof name);
        pollfd wait{filler.descriptor(), POLLOUT, 0};
        constexpr int kShort = 100;  // a made connection on this machine takes far less
        const bool made = ::poll(&wait, 1, kShort) > 0;
        fillers_.push_back(std::move(filler));
        return made;
    }

    Socket listener_ = Socket::open(SOCK_STREAM);
    std::vector<Socket> fillers_;
};

Bytes login_through(std::uint16_t port, std::uint32_t number) {
    Record record = client_record(hash_of(number, 0xB1), "out of reach");
    record.port = port;
    return login(record);
}

TEST(Unreachable, TheyWaitEightSecondsAndOthersDoNot) {
    const std::size_t crowd = crowd_size();
    rlimit descriptors{};
    ::getrlimit(RLIMIT_NOFILE, &descriptors);
    descriptors.rlim_cur = descriptors.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &descriptors);

    const ServerProcess server("threads=2\nmaxClients=" + std::to_string(crowd + 100));
    const BlackHole hole;
    WireClient publisher = WireClient::high(server, "present");
    publisher.publish({file(hash_of(1), "song")});

    std::vector<WireClient> waiting;
    const auto start = Clock::now();
    for (std::size_t i = 0; i < crowd; ++i) {
        waiting.emplace_back(server);
        // What is sent behind the login waits with it.
        waiting.back().send_raw(packet(login_through(hole.port(), static_cast<std::uint32_t>(i)))
                                    .add(packet(callback(0x00ABCDEF))));
    }
    const auto all_sent = Clock::now();

    // Meanwhile: requests, reachable logins, refused logins, datagrams.
    auto slowest = Clock::duration::zero();
    int asked = 0;
    const auto enough = start + std::chrono::seconds(6);
    while (Clock::now() < enough || asked == 0) {
        const auto before = Clock::now();
        EXPECT_EQ(publisher.search(words("song")).records.size(), 1U);
        WireClient::high(server).expect_nothing();
        WireClient::low(server).expect_nothing();
        static_cast<void>(server.status());
        slowest = std::max(slowest, Clock::now() - before);
        ++asked;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));  // leaves room for others
    }
    // Far below the eight seconds that a single one would cost if anybody waited for it; a busy
    // machine is forgiven.
    EXPECT_LT(slowest, std::chrono::seconds(4));
    std::cout << asked << " rounds of four requests meanwhile, the slowest took "
              << std::chrono::duration_cast<std::chrono::milliseconds>(slowest).count() << " ms\n";

    const bool none_answered = waiting.front().silent() && waiting.back().silent();
    EXPECT_TRUE(none_answered || Clock::now() - start > std::chrono::milliseconds(7900));

    std::set<std::uint32_t> ids;
    for (const WireClient& client : waiting) {
        Reader assigned(client.receive());
        assigned.expect_u8(0x40, "the answer to a login");
        const std::uint32_t id = assigned.u32();
        EXPECT_GT(id, 0U);
        EXPECT_LE(id, 0xFFFFFFU);
        EXPECT_TRUE(ids.insert(id).second) << id << " twice";
        EXPECT_EQ(client.receive().first(1), hex("38"));
        EXPECT_EQ(client.receive(), hex("36 EF CD AB 00"));
    }
    const auto end = Clock::now();
    EXPECT_GE(end - start, std::chrono::milliseconds(7900));
    EXPECT_LT(end - all_sent, std::chrono::seconds(8) + kDeadline);
    std::cout << crowd << " low identifiers "
              << std::chrono::duration_cast<std::chrono::milliseconds>(end - all_sent).count()
              << " ms after the last login\n";
    server.wait_for_users(static_cast<std::uint32_t>(crowd) + 1);
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

TEST(Unreachable, LeavingWhileTheTestGoesOnLeavesNothingBehind) {
    const ServerProcess server;
    const BlackHole hole;
    constexpr std::uint32_t kCrowd = 20;
    const Address shared = next_address();
    {
        std::vector<WireClient> crowd;
        for (std::uint32_t i = 0; i < kCrowd; ++i) {
            crowd.emplace_back(server, i == 0 ? shared : next_address());
            crowd.back().send(login_through(hole.port(), i));
        }
        server.wait_for_users(kCrowd);
        for (WireClient& client : crowd)
            client.reset();
    }
    server.wait_for_users(0);
    EXPECT_EQ(WireClient::high(server, "next", shared).id(), shared.value());
}

TEST(Unreachable, AStopDoesNotWaitForThem) {
    ServerProcess server;
    const BlackHole hole;
    std::vector<WireClient> crowd;
    for (std::uint32_t i = 0; i < 20; ++i) {
        crowd.emplace_back(server);
        crowd.back().send(login_through(hole.port(), i));
    }
    server.wait_for_users(20);
    const auto start = Clock::now();
    EXPECT_EQ(server.stop(SIGTERM), 1);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(6));
    for (const WireClient& client : crowd)
        client.expect_closed();
}

// Connects that the system has begun towards a port and not finished.
int connects_under_way(std::uint16_t port) {
    constexpr unsigned kSynSent = 2;
    std::ifstream table("/proc/net/tcp");
    std::string line;
    int count = 0;
    while (std::getline(table, line)) {
        unsigned to = 0;
        unsigned state = 0;
        if (std::sscanf(line.c_str(), "%*d: %*x:%*x %*x:%x %x", &to, &state) == 2 && to == port &&
            state == kSynSent)
            ++count;
    }
    return count;
}

TEST(Unreachable, OnlySoManyTestsAreUnderWayAtATime) {
    const ServerProcess server("limitExempt=\nreachTests=3");
    const BlackHole hole;
    const int fillers = connects_under_way(hole.port());
    std::vector<WireClient> crowd;
    for (std::uint32_t i = 0; i < 20; ++i) {
        crowd.emplace_back(server);
        crowd.back().send(login_through(hole.port(), i));
    }
    server.wait_for_users(20);
    wait_until("three tests", [&] { return connects_under_way(hole.port()) == fillers + 3; });
    WireClient::low(server).expect_nothing();  // waits for its turn, and others for their answers
    EXPECT_LE(connects_under_way(hole.port()), fillers + 3);
    for (const WireClient& client : crowd) {
        Reader reader(client.receive());
        reader.expect_u8(0x40, "id");
        EXPECT_LT(reader.u32(), 0xFFFFFFU);
    }
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
