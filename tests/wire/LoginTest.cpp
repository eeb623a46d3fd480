// Identifiers: who gets the address, who a number, and in which order the numbers come.
#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

TEST(Login, AReachableClientGetsItsAddressAndAnotherTheNextNumber) {
    const ServerProcess server("verbose=true");
    const WireClient without_port(server);
    without_port.send(login(client_record(hash_of(1), "port 0")));
    EXPECT_EQ(without_port.receive(), hex("40 01 00 00 00"));

    const Address address(127, 3, 2, 200);
    const Socket door = Socket::open(SOCK_STREAM);
    Record record = client_record(hash_of(2), "high");
    record.port = 0x8001;
    while (!door.try_bind(address, record.port))
        ++record.port;
    door.listen(5);
    const WireClient high(server, address);
    high.send(login(record));
    EXPECT_EQ(high.receive(), hex("40 7F 03 02 C8"));
    EXPECT_EQ(high.receive().first(1), hex("38"));
    record.id = 0xC802037F;
    server.wait_for_output("ID=" + std::to_string(static_cast<std::int32_t>(record.id)) + " \n");
    EXPECT_EQ(high.users(anything()).back(), record);
}

TEST(Login, OneAddressIsTheIdentifierOfOneReachableClientAtATime) {
    const ServerProcess server;
    const Address shared = next_address();
    const WireClient unreachable = WireClient::low(server, "unreachable", shared);
    WireClient holder = WireClient::high(server, "holder", shared);
    WireClient second(server, shared);
    second.open_door();
    EXPECT_EQ(second.login(client_record(hash_of(1), "second")).id, 2U);
    // At its second login the holder finds the address taken by itself.
    EXPECT_EQ(holder.login(client_record(hash_of(2), "again")).id, 3U);
    EXPECT_EQ(holder.login(client_record(hash_of(2), "again")).id, shared.value());
    holder.close();
    server.wait_for_users(2);
    EXPECT_EQ(WireClient::high(server, "third", shared).id(), shared.value());
}

TEST(Login, OfTheFreedNumbersOnlyTheLatestIsGivenAgain) {
    const ServerProcess server;
    WireClient one = WireClient::low(server);
    WireClient two = WireClient::low(server);
    {
        const auto stranger = strangers(server, 1);  // these two free no number
        const WireClient high = WireClient::high(server);
    }
    server.wait_for_users(2);
    const WireClient three = WireClient::low(server);
    EXPECT_EQ(three.id(), 3U);
    one.close();
    server.wait_for_users(2);
    two.close();
    server.wait_for_users(1);
    const WireClient again = WireClient::low(server);
    EXPECT_EQ(again.id(), 2U);
    EXPECT_EQ(WireClient::low(server).id(), 4U);
}

TEST(Login, AnUnreadableRecordIsReportedAndClosesBeforeAnyIdentifierIsGiven) {
    const ServerProcess server("verbose=true");
    const Bytes fixed = Hash{}.encode().u32(0).u16(0);
    for (const Bytes& record : {
             Bytes(fixed).u32(1).u8(0).text("x").u32(1),                         // type 0
             Bytes(fixed).u32(1).u8(4).text("x").u32(1),                         // type 4
             Bytes(fixed).u32(1).u8(2).text("x").u16(0xFFFF).fill(0xFFFF, 'a'),  // no valid length
             Bytes(fixed).u32(1).u8(2).u16(0xFFFF).fill(0xFFFF, 'a').text("v"),  // nor for a name
             Bytes(fixed).u32(0x7FFFFFFF).add(int_tag(kVersion, 60).encode()),
         }) {
        const WireClient client(server);
        client.send(hex("01").add(record));
        client.expect_closed();
    }
    EXPECT_EQ(WireClient::low(server).id(), 1U);
    server.wait_for_output(
        "ERROR: unknown type MetaTag::makeTag() 4\n"
        "error in tag from bytes\n"
        "ERROR: Meta::fromNetwork()\n");
}

TEST(Login, TheRecordKeepsItsTagsAndNotItsIdentifier) {
    using namespace std::string_view_literals;
    const ServerProcess server;
    WireClient client(server);
    Record record{hash_of(7),
                  0xDEADBEEF,
                  kClosedPort,
                  {int_tag(kVersion, 60), hash_tag("\x07", hash_of(9)), text_tag("", "empty name"),
                   text_tag("n", "no name"), int_tag("\x30", 0xFFFFFFFF), text_tag("Artist", ""),
                   int_tag(kVersion, 61), text_tag("Na\0me"sv, "cut\0off"sv)}};
    client.login(record);
    record.id = 1;
    record.tags.back() = text_tag("Na", "cut");
    EXPECT_EQ(client.users(anything()), std::vector<Record>{record});

    // A tag count below zero means none.
    const WireClient bare(server);
    bare.send(hex("01").add(hash_of(5).encode()).u32(0).u16(kClosedPort).u32(0x80000000));
    EXPECT_EQ(bare.receive(), hex("40 02 00 00 00"));
    EXPECT_EQ(client.users(anything()).back(), (Record{hash_of(5), 2, kClosedPort, {}}));
}

TEST(Login, ASecondLoginTakesANewNumberAndAppendsItsTags) {
    const ServerProcess server;
    WireClient client(server);
    client.login(Record{hash_of(1), 0, 0, {int_tag(kVersion, 60), text_tag(kName, "first")}});
    const WireClient::Welcome again =
        client.login(Record{hash_of(2), 0, 0, {text_tag(kName, "second")}});
    EXPECT_EQ(again.id, 2U);
    EXPECT_EQ(again.texts, Names{"server version 16.36"});  // version 60 still counts
    EXPECT_EQ(client.users(anything()),
              (std::vector<Record>{
                  {hash_of(2),
                   2,
                   kClosedPort,
                   {int_tag(kVersion, 60), text_tag(kName, "first"), text_tag(kName, "second")}}}));
    const WireClient other = WireClient::low(server);
    EXPECT_EQ(other.id(), 3U);  // the first number is not free
    client.close();
    server.wait_for_users(1);
    EXPECT_EQ(WireClient::low(server).id(), 2U);
}

TEST(Login, OfEqualHashesTheFirstToConnectIsFound) {
    const ServerProcess server;
    const auto found = [](const WireClient& asker, const Hash& hash) {
        return Reader(asker.ask(find_user(hash)).from(2)).record().text(kName);
    };
    WireClient early(server);
    EXPECT_EQ(early.ask(find_user(Hash{})), hex("3F 01").add(Record{}.encode()));  // a stranger's
    WireClient late(server);
    late.login(client_record(hash_of(1), "late"));
    EXPECT_EQ(found(late, hash_of(1)), "late");
    early.login(client_record(hash_of(1), "early"));
    EXPECT_EQ(found(late, hash_of(1)), "early");
    early.close();
    server.wait_for_users(1);
    EXPECT_EQ(found(late, hash_of(1)), "late");
}

const char kOutOfDate[] =
    "You have an out of date client please go to https://vorrim.example/ and upgrade.";

TEST(VersionGate, TheFirstVersionTagOfTheRecordDecides) {
    const ServerProcess usual;  // 50 to 2000
    const ServerProcess moved("minVersion=-2\nmaxVersion=7");
    const auto version = [](std::uint32_t number) { return int_tag(kVersion, number); };
    struct Row {
        const ServerProcess& server;
        std::vector<Tag> tags;
        bool let_in;
    };
    const std::vector<Row> rows = {
        {usual, {version(49)}, false},
        {usual, {version(50)}, true},
        {usual, {version(2000)}, true},
        {usual, {version(2001)}, false},
        {usual, {version(0xFFFFFFFF)}, false},
        {usual, {}, false},
        {usual, {int_tag("Version", 60)}, false},
        {usual, {int_tag("Version", 49), version(60)}, true},
        {usual, {version(60), version(49)}, true},
        {usual, {version(49), version(60)}, false},
        {usual, {hash_tag(kVersion, hash_of(60))}, true},  // its first four bytes
        {moved, {version(0xFFFFFFFD)}, false},             // -3
        {moved, {version(0xFFFFFFFE)}, true},
        {moved, {}, true},  // no version is version 0
        {moved, {version(8)}, false},
    };
    for (std::size_t row = 0; row < rows.size(); ++row) {
        SCOPED_TRACE(row);
        const WireClient client(rows[row].server);
        client.send(login(Record{hash_of(1), 0, kClosedPort, rows[row].tags}));
        EXPECT_EQ(client.receive().first(1), hex("40"));
        EXPECT_EQ(client.receive() == hex("38").text(kOutOfDate), !rows[row].let_in);
        // A refused client is closed by its next packet, once that is whole; another one is
        // answered.
        const Bytes next = packet(callback(5));
        client.send_raw(next.first(next.size() - 1));
        static_cast<void>(rows[row].server.status());
        EXPECT_TRUE(client.silent());
        client.send_raw(next.from(next.size() - 1));
        if (rows[row].let_in)
            EXPECT_EQ(client.receive(), hex("36 05 00 00 00"));
        else
            client.expect_closed();
    }
}

}  // namespace
}  // namespace vorrim::wire
