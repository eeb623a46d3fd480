// Identifiers: who gets the address, who a number, and in which order the numbers come.
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <vector>

#include "tests/wire/harness/Datagram.h"
#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

std::string signed_text(std::uint32_t id) {
    return std::to_string(static_cast<std::int32_t>(id));
}

// A record that cannot be read, by its fault; each stands behind the opcode of a login.
std::vector<Bytes> unreadable_records() {
    const Bytes fixed = encode(Hash{}).u32(0).u16(0);
    return {
        Bytes(),                                                 // nothing at all
        encode(Hash{}),                                          // ends behind the hash
        fixed,                                                   // ends before the tag count
        Bytes(fixed).u32(1),                                     // one tag announced, none there
        Bytes(fixed).u32(2).add(encode(int_tag(kVersion, 60))),  // two announced, one there
        Bytes(fixed).u32(1).u8(0).text("x").u32(1),              // type 0
        Bytes(fixed).u32(1).u8(4).text("x").u32(1),              // type 4
        Bytes(fixed).u32(1).u8(1).text("x").fill(15, 0),         // a hash of 15 bytes
        Bytes(fixed).u32(1).u8(3).text("x").u16(1),              // a number of two bytes
        Bytes(fixed).u32(1).u8(2).text("x").u16(0xFFFF).fill(0xFFFF, 'a'),  // no valid length
        Bytes(fixed).u32(1).u8(2).u16(0xFFFF).fill(0xFFFF, 'a').text("v"),  // nor for a name
        Bytes(fixed).u32(0x7FFFFFFF).add(encode(int_tag(kVersion, 60))),
    };
}

TEST(Login, AReachableClientGetsItsAddress) {
    const ServerProcess server("verbose=true");
    server.wait_for_prompt();
    WireClient client(server, Address(127, 3, 2, 200));
    client.open_door();
    EXPECT_EQ(client.login(client_record(hash_of(1), "high")).id, 0xC802037FU);
    server.wait_for_output("ID=" + signed_text(0xC802037F) + " \n");
    EXPECT_EQ(client.users(anything()).front().id, 0xC802037FU);
}

TEST(Login, AnUnreachableClientGetsTheFirstNumber) {
    const ServerProcess server("verbose=true");
    WireClient client(server);
    EXPECT_EQ(client.login(client_record(hash_of(1), "low")).id, 1U);
    server.wait_for_output("ID=1 \n");
    EXPECT_EQ(client.users(anything()).front().id, 1U);
}

TEST(Login, PortZeroIsNotReachable) {
    const ServerProcess server;
    const WireClient client(server);
    client.send(login(client_record(hash_of(1), "port 0")));
    EXPECT_EQ(client.receive(), hex("40 01 00 00 00"));
}

TEST(Login, ReachableThroughAnyPort) {
    const ServerProcess server;
    for (const bool above_half : {false, true}) {
        const Address address = next_address();
        const Socket door = Socket::open(SOCK_STREAM);
        std::uint16_t port = above_half ? 0x8001 : 0x2801;
        while (!door.try_bind(address, port))
            ++port;
        ASSERT_EQ(::listen(door.descriptor(), 5), 0);
        const WireClient client(server, address);
        Record record = client_record(hash_of(port), "any port");
        record.port = port;
        client.send(login(record));
        EXPECT_EQ(client.receive(), Bytes().u8(0x40).u32(address.value()));
        EXPECT_EQ(client.receive().first(1), hex("38"));
        EXPECT_EQ(client.users(tag_contains(kName, "any port")).back().port, port);
    }
}

TEST(Login, OfTwoBehindOneAddressTheSecondGetsANumber) {
    const ServerProcess server;
    const Address shared = next_address();
    WireClient first = WireClient::high(server, "first", shared);
    const WireClient second = [&] {
        WireClient client(server, shared);
        client.open_door();  // reachable as well
        client.login(client_record(hash_of(2), "second"));
        return client;
    }();
    EXPECT_EQ(second.id(), 1U);

    first.close();
    server.wait_for_users(1);
    EXPECT_EQ(WireClient::high(server, "third", shared).id(), shared.value());
}

TEST(Login, AnUnreachableNeighbourLeavesTheAddressFree) {
    const ServerProcess server;
    const Address shared = next_address();
    const WireClient first = WireClient::low(server, "first", shared);
    EXPECT_EQ(first.id(), 1U);
    EXPECT_EQ(WireClient::high(server, "second", shared).id(), shared.value());
}

TEST(Login, AFreedNumberIsGivenToTheNextAndOnlyOneIsRemembered) {
    const ServerProcess server;
    WireClient one = WireClient::low(server);
    WireClient two = WireClient::low(server);
    const WireClient three = WireClient::low(server);
    EXPECT_EQ(one.id(), 1U);
    EXPECT_EQ(two.id(), 2U);
    EXPECT_EQ(three.id(), 3U);

    two.close();
    server.wait_for_users(2);
    const WireClient again = WireClient::low(server);
    EXPECT_EQ(again.id(), 2U);
    WireClient four = WireClient::low(server);
    EXPECT_EQ(four.id(), 4U);

    one.close();
    server.wait_for_users(3);
    four.close();  // replaces the 1 that was remembered
    server.wait_for_users(2);
    const WireClient reused = WireClient::low(server);
    EXPECT_EQ(reused.id(), 4U);
    EXPECT_EQ(WireClient::low(server).id(), 5U);
}

TEST(Login, AnEndWithoutALoginAndAHighEndFreeNoNumber) {
    const ServerProcess server;
    const WireClient one = WireClient::low(server);
    WireClient stranger(server);
    stranger.expect_nothing();
    WireClient high = WireClient::high(server);
    stranger.close();
    high.close();
    server.wait_for_users(1);
    EXPECT_EQ(WireClient::low(server).id(), 2U);
}

TEST(Login, AnUnreadableRecordClosesBeforeAnyIdentifierIsGiven) {
    const ServerProcess server;
    for (const Bytes& record : unreadable_records()) {
        const WireClient client(server);
        client.send(hex("01").add(record));
        client.expect_closed();
    }
    EXPECT_EQ(WireClient::low(server).id(), 1U);
}

TEST(Login, AnUnreadableRecordIsReported) {
    const ServerProcess server("verbose=true");
    server.wait_for_prompt();
    const WireClient unknown_type(server);
    unknown_type.send(hex("01").add(encode(Hash{})).u32(0).u16(0).u32(1).u8(4).text("x").u32(1));
    unknown_type.expect_closed();
    server.wait_for_output(
        "ERROR: unknown type MetaTag::makeTag() 4\n"
        "error in tag from bytes\n"
        "ERROR: Meta::fromNetwork()\n");
}

TEST(Login, ATagCountBelowZeroMeansNone) {
    const ServerProcess server;
    const WireClient client(server);
    client.send(hex("01").add(encode(hash_of(5))).u32(0).u16(kClosedPort).u32(0x80000000));
    EXPECT_EQ(client.receive(), hex("40 01 00 00 00"));
    const WireClient watcher(server);
    const Record seen = watcher.users(anything()).front();
    EXPECT_EQ(seen, (Record{hash_of(5), 1, kClosedPort, {}}));
}

TEST(Login, TheIdentifierInTheRecordIsTheServersNotTheClients) {
    const ServerProcess server;
    WireClient client(server);
    Record record = client_record(hash_of(6), "liar");
    record.id = 0xDEADBEEF;
    client.login(record);
    record.id = 1;
    record.port = kClosedPort;
    EXPECT_EQ(client.users(anything()), std::vector<Record>{record});
}

TEST(Login, TheRecordKeepsTagsOfEveryKindInTheirOrder) {
    const ServerProcess server;
    WireClient client(server);
    const Record record{
        hash_of(7),
        1,
        kClosedPort,
        {int_tag(kVersion, 60), hash_tag("\x07", hash_of(9)), text_tag("", "empty name"),
         text_tag("n", "no name"), int_tag("\x30", 0xFFFFFFFF), text_tag("Artist", ""),
         int_tag(kVersion, 61)}};
    client.login(record);
    EXPECT_EQ(client.users(anything()), std::vector<Record>{record});
}

TEST(Login, ATextEndsAtItsFirstZeroByte) {
    const ServerProcess server;
    WireClient client(server);
    using namespace std::string_view_literals;
    client.login(
        Record{hash_of(8), 0, 0, {int_tag(kVersion, 60), text_tag("Na\0me"sv, "cut\0off"sv)}});
    EXPECT_EQ(client.users(anything()).front().tags.back(), text_tag("Na", "cut"));
}

TEST(Login, ASecondLoginTakesANewNumberAndDoesNotFreeTheOld) {
    const ServerProcess server;
    WireClient client(server);
    EXPECT_EQ(client.login(client_record(hash_of(1), "a")).id, 1U);
    const WireClient::Welcome again = client.login(client_record(hash_of(2), "b"));
    EXPECT_EQ(again.id, 2U);
    EXPECT_EQ(again.texts, std::vector<std::string>{"server version 16.36"});
    EXPECT_EQ(WireClient::low(server).id(), 3U);

    client.close();
    server.wait_for_users(0);
    const WireClient next = WireClient::low(server);
    EXPECT_TRUE(next.id() == 2 || next.id() == 3) << next.id();  // whichever end was the last
}

TEST(Login, ASecondLoginFindsTheAddressTakenByTheFirst) {
    const ServerProcess server;
    WireClient client = WireClient::high(server);
    EXPECT_EQ(client.login(client_record(hash_of(1), "b")).id, 1U);
    EXPECT_EQ(client.login(client_record(hash_of(1), "c")).id, client.address().value());
}

TEST(Login, ASecondLoginAppendsItsTagsToTheRecord) {
    const ServerProcess server;
    WireClient client(server);
    client.login(Record{hash_of(1), 0, 0, {int_tag(kVersion, 60), text_tag(kName, "first")}});
    client.login(Record{hash_of(2), 0, 0, {text_tag(kName, "second")}});  // version 60 still counts
    EXPECT_EQ(client.users(anything()),
              (std::vector<Record>{
                  {hash_of(2),
                   2,
                   kClosedPort,
                   {int_tag(kVersion, 60), text_tag(kName, "first"), text_tag(kName, "second")}}}));
}

TEST(Login, OfEqualHashesTheFirstToConnectIsFound) {
    const ServerProcess server;
    WireClient early(server);
    early.expect_nothing();  // connected before the other one
    WireClient late(server);
    late.login(client_record(hash_of(1), "late"));
    EXPECT_EQ(Reader(late.ask(find_user(hash_of(1))).from(2)).record().text(kName), "late");
    early.login(client_record(hash_of(1), "early"));
    EXPECT_EQ(Reader(late.ask(find_user(hash_of(1))).from(2)).record().text(kName), "early");
    early.close();
    server.wait_for_users(1);
    EXPECT_EQ(Reader(late.ask(find_user(hash_of(1))).from(2)).record().text(kName), "late");
}

TEST(Login, AStrangersHashIsAllZeros) {
    const ServerProcess server;
    const WireClient stranger(server);
    EXPECT_EQ(stranger.ask(find_user(Hash{})), hex("3F 01").add(encode(Record{})));
}

}  // namespace
}  // namespace vorrim::wire
