// One past each limit, on the real server. Loopback is exempt by default, so these servers exempt
// nobody; what each limit is, is in docs/operations.md.
#include <regex>

#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

// A server for whom everybody is a stranger. The test asks for the status all the time; of two
// settings the first counts.
ServerProcess::Setup limited(const std::string& settings) {
    return {.settings = "limitExempt=\n" + settings + "\ndatagramStatus=0"};
}

// What the server has said about its limits, at the latest when it ends: "what: count", of all that
// was said since the start, or "what: " for any number.
void expect_said(ServerProcess& server, const std::vector<std::string>& expected) {
    server.stop(SIGTERM);
    const std::string output = server.output();
    for (const std::string& line : expected) {
        const std::size_t number = line.rfind(": ") + 2;
        const std::string total = number < line.size() ? line.substr(number) : "[0-9]+";
        const std::regex said("Limit: " + line.substr(0, number) + "[0-9]+ \\(" + total + " since");
        EXPECT_TRUE(std::regex_search(output, said)) << line << "\nis not in\n" << output;
    }
}

// It is served: what it asks is answered.
void expect_served(const WireClient& client) {
    EXPECT_EQ(client.ask(hex("1D")), hex("39 00"));
}

TEST(Limits, AnAddressMayHaveSoManyConnectionsAndMakeSoManyAMinute) {
    ServerProcess server(limited("addressConnections=3\naddressConnects=5"));
    const Address crowded = next_address();
    const auto is_served = [&](const WireClient& client) {
        client.send(hex("1D"));
        return client.receive_or_end().has_value();
    };
    std::vector<WireClient> clients;
    for (int i = 0; i < 3; ++i) {
        clients.emplace_back(server, crowded);
        expect_served(clients.back());
    }
    WireClient(server, crowded).expect_closed();
    expect_served(WireClient(server));
    clients.pop_back();
    wait_until("the place is free", [&] { return is_served(WireClient(server, crowded)); });
    // That was the fourth; the door is as good as any other's.
    wait_until("the place is free", [&] { return is_served(WireClient(server, crowded)); });
    clients.clear();
    server.wait_for_users(0);
    WireClient(server, crowded).expect_closed();
    expect_said(server, {"connections refused, too many from one address: ",
                         "connections refused, too fast from one address: 1"});
}

TEST(Limits, TheAdministrationDoorHoldsNoCrowd) {
    // Nobody logs in: an administrator would be told what this test looks for at the console.
    ServerProcess server(limited(""));
    std::vector<Administrator> crowd;
    for (int i = 0; i < 32; ++i)
        crowd.emplace_back(server);
    Administrator(server).connection().expect_closed();
    expect_served(WireClient(server));
    EXPECT_TRUE(crowd.front().connection().silent());
    expect_said(server, {"connections refused, too many of administrators: 1"});
}

TEST(Limits, WhoAsksTooFastIsServedMoreSlowlyAndClosedWhenItGoesOn) {
    const std::vector<std::pair<std::string, Bytes>> kinds{
        {"logins", login(client_record(hash_of(1), "person"))},
        {"offers", offer({})},
        {"searches", search_files(words("nothing"))},
        {"searches", search_users(words("nobody"))},
        {"searches", more_results()},
        {"texts", hex("1E").text("hello")},
        {"texts", hex("1F 09 00")},
        {"call-backs", callback(0x00FFFF00)}};
    ServerProcess server(
        limited("floodSeconds=1\nloginRate=600\nofferRate=600\nsearchRate=600\ntextRate=600\n"
                "callbackRate=600"));
    std::vector<WireClient> clients;
    // A minute's worth and some more: all of it is done, the rest a little later.
    for (const auto& [what, request] : kinds) {
        const WireClient& client = clients.emplace_back(server);
        for (int i = 0; i < 602; ++i)
            client.send(request);
        client.send(find_user(kNobody));
    }
    std::vector<std::string> said{"connections closed for going on too fast: " +
                                  std::to_string(kinds.size())};
    for (std::size_t i = 0; i < kinds.size(); ++i) {
        const auto& [what, request] = kinds[i];
        SCOPED_TRACE(what);
        while (clients[i].receive() != hex("3F 00")) {
        }
        for (int k = 0; k < 100; ++k)
            static_cast<void>(clients[i].send_some(packet(request)));
        said.push_back(what + " slowed down: ");
    }
    for (const WireClient& client : clients) {
        while (client.receive_or_end()) {
        }
    }
    expect_said(server, said);
}

TEST(Limits, FilesBeyondWhatOneClientMayPublishAreRefused) {
    ServerProcess server(limited("clientFiles=3"));
    const WireClient client = WireClient::low(server);
    client.send(hex("17").fill(17 * 1024, 0));  // long packets are for those who have logged in
    const auto some = [](std::uint32_t number) { return file(hash_of(number), "song"); };
    client.publish({some(1), some(2)});
    client.publish({some(3), some(4), some(5)});
    client.publish({some(6)});
    EXPECT_EQ(server.status().files, 3U);
    EXPECT_TRUE(client.sources(hash_of(3)).has_value());
    EXPECT_FALSE(client.sources(hash_of(4)).has_value());
    const WireClient other = WireClient::low(server);
    other.publish({some(1), some(2), some(3)});
    EXPECT_EQ(server.status().files, 6U);
    expect_said(server, {"files refused, too many of one client: 3"});
}

TEST(Limits, RecordsThatAreTooLargeAreRefusedAsAWhole) {
    // A file of this name has two tags, of 38 bytes together.
    ServerProcess server(
        limited("recordBytes=100\nrecordTags=3\ntagNameBytes=10\ntagValueBytes=30"));
    const std::string name = "a song";
    const auto with = [&](std::uint32_t number, const std::vector<Tag>& more) {
        Record record = file(hash_of(number), name);
        record.tags.insert(record.tags.end(), more.begin(), more.end());
        return record;
    };
    const std::string ten(10, 'n');
    const std::string thirty(30, 'v');
    const Record good = with(1, {text_tag(ten, thirty)});
    const Record too_many = with(2, {int_tag("a", 1), int_tag("b", 1)});
    const Record long_name = with(3, {int_tag(ten + 'n', 1)});
    const Record long_value = with(4, {text_tag("a", thirty + 'v')});
    Record large = with(5, {});
    large.tags = {text_tag(kName, thirty), text_tag("b", thirty), text_tag("c", thirty)};
    ASSERT_GT(large.encode().size(), 100U);
    ASSERT_LE(good.encode().size(), 100U);
    const WireClient client = WireClient::high(server);
    client.publish({too_many, good, long_name, long_value, large});
    EXPECT_EQ(server.status().files, 1U);
    const std::vector<Record> found = client.search(words("song")).records;
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].text(ten), thirty);  // whole, nothing cut

    WireClient person(server);
    Record record = client_record(hash_of(9), "person");
    record.tags.push_back(text_tag("a", thirty + 'v'));
    person.send(login(record));
    person.expect_closed();
    expect_said(server, {"files refused, their records too large: 4",
                         "logins refused, their records too large: 1"});
}

TEST(Limits, NoPlaceGetsMoreByDatagramThanItsShare) {
    for (const bool counted_only : {false, true}) {
        SCOPED_TRACE(counted_only);
        ServerProcess server(limited(std::string("datagramBytes=1\ndatagramBurst=2300\n") +
                                     (counted_only ? "datagramCountOnly=true" : "")));
        const WireClient owner = WireClient::high(server);
        owner.publish({file(hash_of(1), "song")});
        constexpr std::size_t kShare = 2300 / 25;  // answers with one source
        const Datagram asker(server);
        std::size_t answers = 0;
        for (std::size_t i = 0; i < kShare + 10; ++i)
            answers += asker.all_answers(udp_sources(hash_of(1))).size();
        EXPECT_EQ(answers, counted_only ? kShare + 10 : kShare);
        EXPECT_EQ(Datagram(server).all_answers(udp_sources(hash_of(1))).size(), 1U);

        // A search is worth a share as well, whatever it finds.
        const Datagram searcher(server);
        EXPECT_EQ(searcher.results(udp_search_files(words("song"))).size(), 1U);
        EXPECT_EQ(searcher.results(udp_search_users(words("high"))).size(), 1U);
        EXPECT_EQ(searcher.results(udp_search_files(words("song"))).size(), counted_only ? 1U : 0U);

        // A call-back goes to the address that it names, whoever asks for it.
        const WireClient low = WireClient::low(server);
        for (int i = 0; i < 3; ++i)
            Datagram(server).send(udp_callback(0x04030201, 4662, low.id()));
        static_cast<void>(server.status());  // the requests are there
        for (int i = 0; i < (counted_only ? 3 : 2); ++i)
            EXPECT_EQ(low.receive(), hex("35 01 02 03 04").u16(4662));
        low.expect_nothing();
        expect_said(server, {"datagrams not answered, too many bytes to one place: "});
    }
}

TEST(Limits, NoPlaceGetsTheStatusAllTheTime) {
    ServerProcess server(limited("datagramStatus=1"));
    const Datagram asker(server);
    for (std::uint32_t i = 0; i < 20; ++i)
        asker.send(udp_status(i));
    asker.send(udp_callback(0x04030201, 4662, 0x00FFFF00));  // is refused
    int statuses = 0;
    while (asker.receive().first(2) == hex("E3 97"))
        ++statuses;
    EXPECT_GE(statuses, 10);
    EXPECT_LT(statuses, 20);
    expect_said(server, {"status datagrams not answered, too many from one place: "});
}

}  // namespace
}  // namespace vorrim::wire
