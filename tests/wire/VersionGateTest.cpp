// Who is let in by the version gate, and what those who are not hear.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

const char kOutOfDate[] =
    "You have an out of date client please go to https://vorrim.example/ and upgrade.";

enum class Gate { let_in, refused };

// Logs in with these tags; tells by the texts that follow the identifier.
Gate knock(const ServerProcess& server, const std::vector<Tag>& tags) {
    const WireClient client(server);
    client.send(login(Record{hash_of(1), 0, kClosedPort, tags}));
    const Bytes assigned = client.receive();
    if (assigned.size() != 5 || assigned[0] != 0x40)
        throw WireFailure("no identifier before the gate");
    Reader text(client.receive());
    text.expect_u8(0x38, "the opcode of a text");
    const bool refused = text.text() == kOutOfDate;
    text.expect_end();
    // A refused client is closed by its next packet; another one is answered.
    client.send(callback(5));
    if (refused)
        client.expect_closed();
    else if (client.receive() != hex("36 05 00 00 00"))
        throw WireFailure("a client that was let in is not answered");
    return refused ? Gate::refused : Gate::let_in;
}

TEST(VersionGate, TheDefaultRangeIsFrom50To2000) {
    const ServerProcess server;
    EXPECT_EQ(knock(server, {int_tag(kVersion, 49)}), Gate::refused);
    EXPECT_EQ(knock(server, {int_tag(kVersion, 50)}), Gate::let_in);
    EXPECT_EQ(knock(server, {int_tag(kVersion, 2000)}), Gate::let_in);
    EXPECT_EQ(knock(server, {int_tag(kVersion, 2001)}), Gate::refused);
    EXPECT_EQ(knock(server, {int_tag(kVersion, 0xFFFFFFFF)}), Gate::refused);
}

TEST(VersionGate, TheSettingsMoveIt) {
    const ServerProcess server("minVersion=-2\nmaxVersion=7");
    EXPECT_EQ(knock(server, {int_tag(kVersion, 0xFFFFFFFD)}), Gate::refused);  // -3
    EXPECT_EQ(knock(server, {int_tag(kVersion, 0xFFFFFFFE)}), Gate::let_in);
    EXPECT_EQ(knock(server, {}), Gate::let_in);  // no version is version 0
    EXPECT_EQ(knock(server, {int_tag(kVersion, 7)}), Gate::let_in);
    EXPECT_EQ(knock(server, {int_tag(kVersion, 8)}), Gate::refused);
}

TEST(VersionGate, OnlyTheFirstTagOfTheOneByteNameCounts) {
    const ServerProcess server;
    EXPECT_EQ(knock(server, {}), Gate::refused);
    EXPECT_EQ(knock(server, {int_tag("Version", 60)}), Gate::refused);
    EXPECT_EQ(knock(server, {int_tag("Version", 49), int_tag(kVersion, 60)}), Gate::let_in);
    EXPECT_EQ(knock(server, {int_tag(kVersion, 60), int_tag(kVersion, 49)}), Gate::let_in);
    EXPECT_EQ(knock(server, {int_tag(kVersion, 49), int_tag(kVersion, 60)}), Gate::refused);
    EXPECT_EQ(knock(server, {hash_tag(kVersion, hash_of(60))}), Gate::let_in);  // its first 4 bytes
}

TEST(VersionGate, TheWelcomeLinesComeInTheirOrder) {
    const ServerProcess server("welcome[0]=A first line\nwelcome[1]=50% and more\nwelcome[2]=");
    WireClient client(server);
    EXPECT_EQ(
        client.login(client_record(hash_of(1), "guest")).texts,
        (std::vector<std::string>{"server version 16.36", "A first line", "50% and more", ""}));
}

TEST(VersionGate, ARefusedClientStaysUntilItsNextPacket) {
    const ServerProcess server;
    const WireClient client(server);
    client.send(login(client_record(hash_of(1), "old", 49)));
    EXPECT_EQ(client.receive(), hex("40 01 00 00 00"));
    EXPECT_EQ(client.receive(), hex("38").text(kOutOfDate));

    const WireClient other(server);
    EXPECT_EQ(other.users(anything()).size(), 2U);
    const Bytes next = packet(login(client_record(hash_of(1), "new")));
    client.send_raw(next.first(next.size() - 1));
    other.expect_nothing();
    EXPECT_TRUE(client.silent());
    client.send_raw(next.from(next.size() - 1));
    client.expect_closed();
    server.wait_for_users(1);
}

TEST(VersionGate, WhatARefusedClientHasSentAheadIsNotAnswered) {
    const ServerProcess server;
    const WireClient client(server);
    client.send_raw(packet(login(client_record(hash_of(1), "old", 49)))
                        .add(packet(hex("30")))
                        .add(packet(callback(1))));
    EXPECT_EQ(client.receive().first(1), hex("40"));
    EXPECT_EQ(client.receive().first(1), hex("38"));
    client.expect_closed();
}

}  // namespace
}  // namespace vorrim::wire
