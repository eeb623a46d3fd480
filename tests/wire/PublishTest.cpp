// Publishing files, the filters that refuse some, their sources, and that publishers who leave
// leave nothing behind.
#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

using Sources = std::vector<Source>;

TEST(Publish, EveryOfferCountsAsASourceAnd230AreTold) {
    const ServerProcess server;
    const WireClient first = WireClient::high(server);
    WireClient many = WireClient::low(server);
    const WireClient last = WireClient::high(server);
    const Record record = file(hash_of(1), "popular");
    first.publish({record});
    many.publish(std::vector<Record>(229, record));

    Sources expected(230, many.source());
    expected.front() = first.source();
    EXPECT_EQ(last.sources(hash_of(1)), expected);
    last.publish({record});
    EXPECT_EQ(last.sources(hash_of(1)), expected);
    EXPECT_EQ(last.ask(get_sources(hash_of(1))).size(), 1398U);
    const Bytes datagram = Datagram(server).ask(udp_sources(hash_of(1)));
    EXPECT_EQ(datagram.size(), 1399U);
    EXPECT_EQ(read_sources(datagram.from(1), hash_of(1), 0x9B), expected);
    EXPECT_EQ(last.search(anything()).records.at(0).number(kAvailability), 231U);
    many.close();
    server.wait_for_status({2, 2});
}

TEST(Publish, WhatComesBeforeALoginIsIdentifierZerosAndLeavesWithAnyStranger) {
    const ServerProcess server;
    WireClient client(server);
    client.publish(songs(2));
    client.login(client_record(hash_of(1), "late"));
    client.publish({file(hash_of(2), "a file")});
    EXPECT_EQ(client.sources(songs(1)[0].hash), (Sources{{0, 0}}));
    EXPECT_EQ(client.sources(hash_of(2)), Sources{client.source()});
    client.close();
    server.wait_for_status({0, 2});
    strangers(server, 1).clear();
    server.wait_for_status({0, 0});
}

TEST(Publish, AnUnreadableListIsReportedAndClosesAndNothingOfItIsPublished) {
    const ServerProcess server("verbose=true");
    const Bytes two = encode(songs(2)).from(4);
    const Bytes good = encode(songs(1)).from(4);
    for (const Bytes& list : {
             Bytes().u32(7).add(two),           // too few records
             Bytes().u32(0x7FFFFFFF).add(two),  // far too few
             Bytes().u32(2).add(good).add(hash_of(9).encode()).u32(0).u16(0).u32(1).u8(9).text("x"),
         }) {
        const WireClient client = WireClient::low(server);
        client.send(hex("15").add(list));
        client.expect_closed();
    }
    server.wait_for_status({0, 0});
    server.wait_for_output("meta #:7, n=2\nERROR: FileList::fromNetwork()\n");
    const WireClient client = WireClient::low(server);
    EXPECT_TRUE(client.answers(hex("15 00 00 00 80").add(good)).empty());  // below zero: none
    EXPECT_EQ(server.status(), (Status{1, 0}));
}

TEST(Departure, RequestsSentJustBeforeAnEndAreServed) {
    const ServerProcess server;
    const WireClient low = WireClient::low(server);
    {
        const WireClient high = WireClient::high(server);
        high.send(callback(low.id()));
    }
    EXPECT_EQ(low.receive().first(1), hex("35"));
}

// Withdrawing so many files takes many steps; the address is free again behind the last.
TEST(Departure, WhoComesBackMeanwhileGetsItsAddressAgain) {
    const ServerProcess server("threads=2");
    const Address address = next_address();
    for (int round = 0; round < 3; ++round) {
        WireClient client = WireClient::high(server, "restless", address);
        ASSERT_EQ(client.id(), address.value());
        client.publish(songs(20'000));
        client.close();
    }
    server.wait_for_status({0, 0});
}

// Whoever leaves while another has its former identifier cannot withdraw what stands under it; the
// other has published nothing, and does not leave with that identifier.
TEST(Departure, FilesOfAFormerIdentifierGoWithTheLastWhoHeldIt) {
    const ServerProcess server;
    const Address shared = next_address();
    WireClient first = WireClient::high(server, "first", shared);
    first.publish({file(hash_of(1), "song")});
    EXPECT_NE(first.login(client_record(hash_of(1), "first")).id, shared.value());
    WireClient heir = WireClient::high(server, "heir", shared);
    ASSERT_EQ(heir.id(), shared.value());
    first.close();
    server.wait_for_status({1, 1});
    EXPECT_NE(heir.login(client_record(hash_of(2), "heir")).id, shared.value());
    heir.close();
    server.wait_for_status({0, 0});
}

TEST(Filters, RefuseWhatMatches) {
    const Record large = file(hash_of(1), "Film.avi", 651);
    const Record small = file(hash_of(2), "Song.mp3", 650);
    const Record bare{hash_of(3), 0, 0, {int_tag(kSize, 0x80000000)}};
    using Row = std::pair<const char*, Names>;
    for (const auto& [filters, kept] : {
             Row{"filter[0]=(#SIZE > 650)", {"Song.mp3", ""}},  // signed
             Row{"filter[0]=song", {"Film.avi", ""}},
             Row{"filter[0]=Song", {"Film.avi", "Song.mp3", ""}},  // in small letters only
             Row{"filter[0]=", {""}},
             // Any one of them refuses; behind a gap they are not read.
             Row{"filter[0]=mp3\nfilter[1]=(#SIZE = 651)\nfilter[3]=*", {""}},
         }) {
        const ServerProcess server(filters);
        const WireClient client = WireClient::high(server);
        client.publish({large, small, bare});
        EXPECT_EQ(names(client.search(anything()).records), kept) << filters;
        EXPECT_EQ(server.status().files, kept.size()) << filters;
    }
}

TEST(Filters, ABadOneIsReportedAndSkippedAndARefusedFileHasNoSource) {
    const ServerProcess server("filter[0]=()()\nfilter[1]=(mp3)|(#SIZE > )\nfilter[2]=refused");
    server.wait_for_output("\nBad filter: ()()\nBad filter: (mp3)|(#SIZE > )\nWelcome");
    const WireClient client = WireClient::high(server);
    client.publish({file(hash_of(1), "refused"), file(hash_of(2), "taken")});
    EXPECT_EQ(client.sources(hash_of(1)), std::nullopt);
    client.publish({file(hash_of(1), "under a better name"), file(hash_of(2), "refused now")});
    for (const std::uint32_t number : {1U, 2U})
        EXPECT_EQ(client.sources(hash_of(number)), std::vector<Source>{client.source()});
}

}  // namespace
}  // namespace vorrim::wire
