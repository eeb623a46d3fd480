// User searches: everybody who is connected, in the order of arrival.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/wire/harness/Datagram.h"
#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

using Names = std::vector<std::string>;

constexpr std::size_t kLimit = 200;

TEST(UserSearch, EverybodyIsFoundInOrderOfArrivalLoggedInOrNot) {
    const ServerProcess server;
    const WireClient ann = WireClient::low(server, "Ann");
    WireClient stranger(server);
    stranger.expect_nothing();
    const WireClient bob = WireClient::high(server, "Bob");
    std::vector<Record> found = ann.users(anything());
    ASSERT_EQ(found.size(), 3U);
    EXPECT_EQ(names(found), (Names{"Ann", "", "Bob"}));
    EXPECT_EQ(found[0].id, ann.id());
    EXPECT_EQ(found[1], Record{});
    EXPECT_EQ(found[2].id, bob.id());
    EXPECT_EQ(found[2].port, bob.announced_port());

    stranger.login(client_record(hash_of(1), "Eve"));  // keeps its place
    EXPECT_EQ(names(bob.users(anything())), (Names{"Ann", "Eve", "Bob"}));
}

TEST(UserSearch, ExpressionsLookAtTheClientsTags) {
    const ServerProcess server;
    WireClient ann(server);
    ann.login(client_record(hash_of(1), "Ann Lee", 60));
    WireClient bob(server);
    bob.login(client_record(hash_of(2), "Bob Lee", 100));
    EXPECT_EQ(names(ann.users(words("LEE"))), (Names{"Ann Lee", "Bob Lee"}));
    EXPECT_EQ(names(ann.users(words("ob le"))), Names{"Bob Lee"});  // any part of the text
    EXPECT_EQ(names(ann.users(words("lee bob"))), Names{});
    EXPECT_EQ(names(ann.users(tag_is(kVersion, Is::above, 60))), Names{"Bob Lee"});
    EXPECT_EQ(ann.ask(search_users(words("carl"))), hex("43 00 00 00 00"));
}

TEST(UserSearch, LeaversAreNotFound) {
    const ServerProcess server;
    WireClient ann = WireClient::low(server, "Ann");
    const WireClient bob = WireClient::low(server, "Bob");
    ann.close();
    server.wait_for_users(1);
    EXPECT_EQ(names(bob.users(anything())), Names{"Bob"});
    EXPECT_EQ(Datagram(server).results(udp_search_users(anything())).size(), 1U);
}

TEST(UserSearch, ItEndsAt200) {
    const ServerProcess server;
    std::vector<WireClient> crowd;
    Names arrival;
    for (std::size_t i = 0; i < kLimit + 5; ++i) {
        arrival.push_back("guest " + std::to_string(i));
        crowd.push_back(WireClient::low(server, arrival.back()));
    }
    arrival.resize(kLimit);
    EXPECT_EQ(names(crowd.back().users(anything())), arrival);
    EXPECT_EQ(names(crowd.back().users(words("guest"))), arrival);
    EXPECT_EQ(names(crowd.back().users(words("guest 204"))), Names{"guest 204"});
    EXPECT_EQ(names(Datagram(server).results(udp_search_users(anything()))), arrival);
    crowd.back().send(more_results());  // and cannot be continued
    crowd.back().expect_nothing();
}

TEST(UserSearch, ByDatagramEachUserIsOneDatagram) {
    const ServerProcess server;
    const WireClient ann = WireClient::low(server, "Ann");
    const WireClient bob = WireClient::high(server, "Bob");
    const Datagram asker(server);
    EXPECT_EQ(asker.results(udp_search_users(anything())), ann.users(anything()));
    EXPECT_EQ(names(asker.results(udp_search_users(words("bob")))), Names{"Bob"});
    EXPECT_TRUE(asker.results(udp_search_users(words("carl"))).empty());
}

}  // namespace
}  // namespace vorrim::wire
