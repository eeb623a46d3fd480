// Who is let in by the version gate, and what those who are not hear.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

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
        // A refused client is closed by its next packet; another one is answered.
        client.send(callback(5));
        if (rows[row].let_in)
            EXPECT_EQ(client.receive(), hex("36 05 00 00 00"));
        else
            client.expect_closed();
    }
}

TEST(VersionGate, ARefusedClientStaysUntilItsNextPacketWhichIsNotAnswered) {
    const ServerProcess server;
    const Bytes old_login = packet(login(client_record(hash_of(1), "old", 49)));
    for (const bool sent_ahead : {false, true}) {
        const WireClient other(server);
        const WireClient client(server);
        const Bytes next = packet(callback(1));
        client.send_raw(sent_ahead ? Bytes(old_login).add(next) : old_login);
        EXPECT_EQ(client.receive().first(1), hex("40"));
        EXPECT_EQ(client.receive(), hex("38").text(kOutOfDate));
        if (!sent_ahead) {
            EXPECT_EQ(other.users(anything()).size(), 2U);
            client.send_raw(next.first(next.size() - 1));
            other.expect_nothing();
            EXPECT_TRUE(client.silent());
            client.send_raw(next.from(next.size() - 1));
        }
        client.expect_closed();
    }
    server.wait_for_users(0);
}

}  // namespace
}  // namespace vorrim::wire
