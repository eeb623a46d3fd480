// User searches: everybody who is connected, in the order of arrival.
#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

constexpr std::size_t kLimit = 200;

TEST(UserSearch, EverybodyIsFoundInOrderOfArrivalLoggedInOrNot) {
    const ServerProcess server;
    WireClient ann = WireClient::low(server, "Ann");
    WireClient stranger(server);
    stranger.expect_nothing();
    const WireClient bob = WireClient::high(server, "Bob");
    const std::vector<Record> found = bob.users(anything());
    ASSERT_EQ(names(found), (Names{"Ann", "", "Bob"}));
    EXPECT_EQ(found[0].id, ann.id());
    EXPECT_EQ(found[1], Record{});
    EXPECT_EQ(found[2].id, bob.id());
    EXPECT_EQ(found[2].port, bob.announced_port());
    const Datagram asker(server);  // gets one datagram for each
    EXPECT_EQ(asker.results(udp_search_users(anything())), found);

    stranger.login(client_record(hash_of(1), "Eve Bobson", 100));  // keeps its place
    EXPECT_EQ(names(bob.users(words("BOB"))), (Names{"Eve Bobson", "Bob"}));
    EXPECT_EQ(names(bob.users(words("e bo"))), Names{"Eve Bobson"});  // any part of the text
    EXPECT_EQ(names(bob.users(words("bobson eve"))), Names{});
    EXPECT_EQ(names(bob.users(tag_is(kVersion, Is::above, 60))), Names{"Eve Bobson"});
    EXPECT_EQ(names(asker.results(udp_search_users(words("son")))), Names{"Eve Bobson"});
    EXPECT_TRUE(asker.results(udp_search_users(words("carl"))).empty());
    EXPECT_EQ(bob.ask(search_users(words("carl"))), hex("43 00 00 00 00"));

    ann.close();
    server.wait_for_users(2);
    EXPECT_EQ(names(bob.users(anything())), (Names{"Eve Bobson", "Bob"}));
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
    const WireClient& asker = crowd.back();
    EXPECT_EQ(names(asker.users(anything())), arrival);
    EXPECT_EQ(names(asker.users(words("guest"))), arrival);
    EXPECT_EQ(names(asker.users(words("guest 204"))), Names{"guest 204"});
    EXPECT_EQ(names(Datagram(server).results(udp_search_users(anything()))), arrival);
    EXPECT_TRUE(asker.answers(more_results()).empty());  // it cannot be continued
}

// Dozens of steps, on the only worker, and every other client leaves meanwhile.
TEST(UserSearch, ALongOneLetsOthersInAndMissesNobodyWhoStays) {
    const ServerProcess server("threads=1");
    const WireClient asker = WireClient::low(server, "asker");
    std::vector<WireClient> staying;
    std::vector<WireClient> leaving;
    Names who;
    for (int i = 0; i < 100; ++i) {
        who.push_back("guest " + std::to_string(i));
        staying.push_back(WireClient::low(server, who.back()));
        leaving.push_back(WireClient::low(server, "visitor"));
    }
    Bytes expression = words("guest");
    for (int i = 0; i < 14; ++i)
        expression = joined(Op::either, words("nobody"), expression);
    expression = doubled(10, Op::either, expression);
    asker.send(search_users(expression));
    asker.send(search_users(words("asker")));
    int served = 0;
    for (; asker.silent(); ++served) {
        if (!leaving.empty()) leaving.pop_back();
        EXPECT_EQ(names(staying.front().users(words("guest 99"))), Names{"guest 99"});
    }
    EXPECT_GT(served, 2);
    EXPECT_EQ(names(read_users(asker.receive())), who);
    EXPECT_EQ(names(read_users(asker.receive())), Names{"asker"});
}

}  // namespace
}  // namespace vorrim::wire
