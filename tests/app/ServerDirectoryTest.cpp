// Discovery against a network that only notes the datagrams; what they cause elsewhere is told by
// hand.
#include <atomic>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "app/ServerDirectory.h"
#include "base/file/primitives.h"
#include "base/kx_err.h"
#include "meta/ClientId.h"
#include "tests/ScratchFolder.h"
#include "tests/WireForms.h"
#include "tests/base/RecordingOutput.h"
#include "tests/net/MemoryNet.h"

namespace vorrim {
namespace {

constexpr std::uint32_t kOwn = 0x01020305;  // 5.3.2.1
constexpr std::uint16_t kOwnPort = 4661;
constexpr std::uint32_t kOther = 0x04030201;  // 1.2.3.4
const std::string kHello("\xE3\xA0\x05\x03\x02\x01\x35\x12", 8);
const std::string kEmptyList("\x0E\0\0\0\0", 5);

class ServerDirectoryTest : public ::testing::Test {
protected:
    ServerDirectoryTest() {
        settings_.publicServer = true;
        settings_.thisIP = kOwn;
    }

    // Address, port and unanswered pings of each server, in order.
    using Servers = std::vector<std::string>;
    static Servers list(const auto& for_each) {
        Servers servers;
        for_each([&](const ServerMeta& server) {
            servers.push_back(ipToText(server.id()) + ':' + std::to_string(server.port()) + ' ' +
                              std::to_string(server.history()));
        });
        return servers;
    }
    [[nodiscard]] Servers known() const {
        return list([this](const auto& see) { directory_.forEachKnown(see); });
    }
    [[nodiscard]] Servers working() const {
        return list([this](const auto& see) { directory_.forEachWorking(see); });
    }
    [[nodiscard]] std::string working_list() const {
        kx_memory_file out(16);
        directory_.writeWorkingList(out);
        return test::bytes_of(out.written()).string();
    }

    CurrentFolder folder_;
    RecordingOutput output_;
    ServerSettings settings_;
    MemoryNet net_;
    LimitLog limits_;
    ServerDirectory directory_{settings_, net_, limits_};
};

TEST_F(ServerDirectoryTest, AFileThatCannotBeReadGivesWayToTheSeed) {
    settings_.seedIP = "1.2.3.4";
    const std::string one("\x0E\x01\0\0\0\x7F\0\0\x01\x35\x12\0\0\0\0", 15);
    const std::map<std::string, Servers> outcomes = {
        {one, {"127.0.0.1:4661 0"}},
        {kEmptyList, {"1.2.3.4:4661 0"}},
        {"\x0D" + one.substr(1), {"1.2.3.4:4661 0"}},
        // Two servers, the second with a tag of no known type.
        {std::string("\x0E\x02\0\0\0\x7F\0\0\x01\x35\x12\0\0\0\0\x7F\0\0\x02\x35\x12\x01\0\0\0\x09",
                     26),
         {"1.2.3.4:4661 0"}},
    };
    for (const auto& [content, expected] : outcomes) {
        folder_.write("serverList.met", content);
        ServerDirectory directory(settings_, net_, limits_);
        directory.start();
        EXPECT_EQ(list([&](const auto& see) { directory.forEachKnown(see); }), expected);
    }
    for (const std::size_t size : {0U, 1U, 4U, 5U, 10U, 14U}) {
        folder_.write("serverList.met", one.substr(0, size));
        ServerDirectory directory(settings_, net_, limits_);
        EXPECT_THROW(directory.start(), kx_err) << size;
    }
}

TEST_F(ServerDirectoryTest, TheCountOfPingsGoesOnAfterARestart) {
    directory_.learn(kOther, 4661, Told::at_home);
    for (int sweep = 1; sweep <= 6; ++sweep)
        directory_.sweep();
    directory_.save();
    net_.take();

    ServerDirectory next(settings_, net_, limits_);
    next.start();
    next.sweep();
    EXPECT_EQ(net_.take(), Datagrams());
    next.save();
    EXPECT_EQ(folder_.read("serverList.met"), kEmptyList);
}

TEST_F(ServerDirectoryTest, ItNeverCallsNorForgetsItself) {
    directory_.learn(kOwn, kOwnPort, Told::at_home);
    directory_.learn(kOwn, kOwnPort + 1, Told::at_home);  // another server of the same host
    for (int sweep = 1; sweep <= 8; ++sweep)
        directory_.sweep();
    EXPECT_EQ(net_.take().size(), 6U);
    EXPECT_EQ(known(), (Servers{"5.3.2.1:4661 0"}));
}

TEST_F(ServerDirectoryTest, WithoutRoomThoseWhoAnsweredStayAndThoseOnlyHeardOfMakeRoom) {
    settings_.knownServers = 3;
    settings_.serversPerNetwork = 2;
    const auto address = [](std::uint32_t network, std::uint32_t host) {
        return 0x01 | network << 16U | host << 24U;  // 1.0.network.host
    };
    directory_.learn(address(1, 1), 1, Told::by_others);
    directory_.learn(address(1, 2), 1, Told::by_others);
    directory_.learn(address(1, 3), 1, Told::by_others);  // a third of the network
    directory_.learn(address(2, 1), 1, Told::by_others);
    directory_.learn(address(3, 1), 1, Told::by_others);  // a fourth altogether
    directory_.onHello(address(3, 2), 1, Told::by_others);
    directory_.onHello(address(1, 2), 1, Told::by_others);  // known already
    EXPECT_EQ(known(), (Servers{"1.0.1.1:1 0", "1.0.1.2:1 0", "1.0.2.1:1 0"}));
    EXPECT_EQ(limits_.total(Limit::known_servers), 3U);

    directory_.sweep();
    directory_.onHello(address(1, 2), 1, Told::by_others);
    directory_.onHello(address(2, 1), 1, Told::by_others);
    directory_.onHello(address(3, 3), 1, Told::by_itself);  // instead of the one silent longest
    EXPECT_EQ(known(), (Servers{"1.0.1.2:1 0", "1.0.2.1:1 0", "1.0.3.3:1 0"}));
    directory_.onHello(address(1, 2), 1, Told::by_itself);
    directory_.onHello(address(1, 4), 1, Told::by_itself);
    directory_.onHello(address(1, 5), 1, Told::by_itself);  // its network is full of good ones
    EXPECT_EQ(known(), (Servers{"1.0.1.2:1 0", "1.0.3.3:1 0", "1.0.1.4:1 0"}));
    EXPECT_EQ(working(), (Servers{"1.0.1.2:1 0", "1.0.3.3:1 0", "1.0.1.4:1 0"}));
    EXPECT_EQ(limits_.total(Limit::known_servers), 4U);
    directory_.learn(address(4, 1), 1, Told::at_home);
    EXPECT_EQ(known().size(), 4U);
}

TEST_F(ServerDirectoryTest, AListNamesTheFirst230) {
    for (std::uint16_t port = 1; port <= 231; ++port)
        directory_.onHello(kOther, port, Told::at_home);
    const Datagrams answers = net_.take();
    for (const std::size_t answer : {229U, 230U}) {
        const std::string& bytes = answers[answer].bytes;
        EXPECT_EQ(bytes.size(), 1389U);
        EXPECT_EQ(bytes.substr(8), working_list());
        EXPECT_EQ(bytes[8], '\xE6');
        EXPECT_EQ(bytes.substr(1389 - 6), std::string("\x01\x02\x03\x04\xE6\x00", 6));
    }
}

// Meant for the sanitizers: everything at once, with servers that are forgotten while they greet.
TEST_F(ServerDirectoryTest, GreetingsDuringSweepsLeaveNoForgottenServerBehind) {
    std::atomic<bool> over{false};
    const auto greet = [&](std::uint32_t base) {
        for (std::uint16_t i = 0; !over; ++i) {
            directory_.onHello(base, static_cast<std::uint16_t>(i % 50), Told::at_home);
            directory_.learn(base + 1, static_cast<std::uint16_t>(i % 500), Told::at_home);
            directory_.onListHeader(base + 1, static_cast<std::uint16_t>(i % 7), Told::at_home);
            static_cast<void>(working_list());
        }
    };
    std::thread one(greet, 0x0A000001U);
    std::thread two(greet, 0x0A000001U);  // the same servers
    for (int sweep = 0; sweep < 200; ++sweep) {
        directory_.sweep();
        if (sweep % 20 == 0) directory_.save();
    }
    over = true;
    one.join();
    two.join();
    net_.take();

    const Servers all = known();
    for (const std::string& server : working())
        EXPECT_NE(std::find(all.begin(), all.end(), server), all.end()) << server;
    std::set<std::string> addresses;
    for (const std::string& server : all)
        EXPECT_TRUE(addresses.insert(server.substr(0, server.find(' '))).second) << server;
}

}  // namespace
}  // namespace vorrim
