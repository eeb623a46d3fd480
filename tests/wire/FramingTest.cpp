// Packets as the stream delivers them: in crumbs, in heaps, broken, oversized, never finished.
#include <array>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/wire/harness/Datagram.h"
#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

constexpr std::uint32_t kLargestPayload = 16U << 20U;

Bytes header(std::uint32_t length, std::uint32_t marker = 0xE3) {
    return Bytes().u8(marker).u32(length);
}

std::int64_t address_space_in_kib(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string word;
    while (status >> word) {
        std::int64_t value = 0;
        if (word == "VmSize:" && status >> value) return value;
    }
    throw WireFailure("no size of the server's address space");
}

TEST(Framing, APacketThatArrivesAByteAtATimeIsOnePacket) {
    const ServerProcess server;
    const WireClient client(server);
    const Datagram bystander(server);
    const Bytes request = packet(find_user(kNobody));
    for (std::size_t i = 0; i < request.size(); ++i) {
        EXPECT_TRUE(client.silent()) << "before byte " << i;
        client.send_raw(request.from(i).first(1));
        static_cast<void>(bystander.status());  // the server has had a turn in between
    }
    EXPECT_EQ(client.receive(), hex("3F 00"));
}

TEST(Framing, SeveralRequestsInOneSegmentAreAnsweredInOrder) {
    const ServerProcess server;
    const WireClient client(server);
    Bytes segment;
    constexpr int kRounds = 100;
    for (int i = 0; i < kRounds; ++i) {
        segment.add(packet(find_user(kNobody)));
        segment.add(packet(callback(0x00ABCDEF)));
        segment.add(packet(search_files(anything())));
        segment.add(packet(hex("30")));       // unknown: no answer
        segment.add(packet(more_results()));  // nothing to go on with: no answer
        segment.add(packet(callback(7)));
    }
    client.send_raw(segment);
    for (int i = 0; i < kRounds; ++i) {
        ASSERT_EQ(client.receive_packet(), hex("E3 02 00 00 00 3F 00")) << i;
        ASSERT_EQ(client.receive_packet(), hex("E3 05 00 00 00 36 EF CD AB 00")) << i;
        ASSERT_EQ(client.receive_packet(), hex("E3 06 00 00 00 33 00 00 00 00 00")) << i;
        ASSERT_EQ(client.receive_packet(), hex("E3 05 00 00 00 36 07 00 00 00")) << i;
    }
    client.expect_nothing();
}

TEST(Framing, ASegmentMayEndAnywhereInAPacket) {
    const ServerProcess server;
    const WireClient client(server);
    const Datagram bystander(server);
    const Bytes two = packet(callback(1)).add(packet(callback(2)));
    for (std::size_t cut = 0; cut <= two.size(); ++cut) {
        client.send_raw(two.first(cut));
        static_cast<void>(bystander.status());
        client.send_raw(two.from(cut));
        ASSERT_EQ(client.receive(), hex("36 01 00 00 00")) << "cut at " << cut;
        ASSERT_EQ(client.receive(), hex("36 02 00 00 00")) << "cut at " << cut;
    }
}

TEST(Framing, AWrongMarkerClosesEvenBeforeAPlausibleLength) {
    const ServerProcess server;
    for (const std::uint32_t marker : {0x00U, 0xC5U, 0xD4U, 0xE2U, 0xE4U, 0xFFU}) {
        const WireClient client(server);
        client.send_raw(header(17, marker).add(find_user(kNobody)));
        client.expect_closed();
    }
    server.wait_for_users(0);
}

TEST(Framing, AWrongMarkerIsJudgedByTheFifthByteOfTheHeader) {
    const ServerProcess server;
    const WireClient client(server);
    client.send_raw(hex("C5 02 00 00"));
    static_cast<void>(server.status());
    EXPECT_TRUE(client.silent());
    client.send_raw(hex("00"));
    client.expect_closed();
}

TEST(Framing, WhatCameBeforeAWrongMarkerIsAnswered) {
    const ServerProcess server;
    const WireClient client(server);
    client.send_raw(packet(callback(1)));
    EXPECT_EQ(client.receive(), hex("36 01 00 00 00"));
    client.send_raw(hex("00 00 00 00 00"));
    client.expect_closed();
}

TEST(Framing, ALengthOfZeroCloses) {
    const ServerProcess server;
    const WireClient client(server);
    client.send_raw(header(0));
    client.expect_closed();
}

TEST(Framing, ALengthAboveTheMaximumClosesBeforeAnyPayload) {
    const ServerProcess server;
    for (const std::uint32_t length :
         {kLargestPayload + 1, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        const WireClient client(server);
        client.send_raw(header(length));
        client.expect_closed();
    }
}

TEST(Framing, APacketOfTheMaximumLengthIsOnePacket) {
    const ServerProcess server;
    const WireClient client(server);
    client.send_raw(header(kLargestPayload).u8(0x30).fill(kLargestPayload - 1, 0xE3));
    client.expect_nothing();
}

TEST(Framing, HalfAPacketAndAnEndLeaveNothingBehind) {
    const ServerProcess server;
    const Bytes whole = packet(login(client_record(hash_of(1), "half")));
    for (std::size_t length = 1; length < whole.size(); length += 3) {
        WireClient client(server);
        client.send_raw(whole.first(length));
        length % 2 == 0 ? client.close() : client.reset();
    }
    server.wait_for_users(0);
    EXPECT_EQ(WireClient::low(server).id(), 1U);  // none of them took an identifier
}

TEST(Framing, AnAnnouncedLengthReservesNothing) {
    const ServerProcess server;
    std::vector<WireClient> clients;
    constexpr int kClients = 100;
    for (int i = 0; i < kClients; ++i) {
        clients.emplace_back(server);
        clients.back().send_raw(packet(find_user(kNobody)));
        EXPECT_EQ(clients.back().receive(), hex("3F 00"));
    }
    const std::int64_t before = address_space_in_kib(server.pid());
    for (const WireClient& client : clients)
        client.send_raw(header(kLargestPayload).u8(0x15));
    static_cast<void>(WireClient::low(server));  // they have been read when others are served
    static_cast<void>(server.status());
    const std::int64_t growth = address_space_in_kib(server.pid()) - before;
    constexpr std::int64_t kReserved = std::int64_t{kClients} * kLargestPayload / 1024;
    EXPECT_LT(growth, kReserved / 4);
}

TEST(Framing, UnknownOpcodesKeepTheConnection) {
    const ServerProcess server("verbose=true");
    server.wait_for_prompt();
    const WireClient client(server);
    constexpr std::uint32_t kFirstKnown = 0x14;
    constexpr std::uint32_t kLastKnown = 0x21;
    std::vector<std::uint32_t> unknown = {0x17};
    for (std::uint32_t opcode = 0; opcode < 256; ++opcode)
        if (opcode != 0x01 && (opcode < kFirstKnown || opcode > kLastKnown))
            unknown.push_back(opcode);
    std::string expected;
    for (const std::uint32_t opcode : unknown) {
        client.send(Bytes().u8(opcode));
        expected += "Unknown msg from Connection: " + std::to_string(opcode) + '\n';
    }
    client.expect_nothing();
    server.wait_for_output(expected);
}

TEST(Framing, ThePayloadOfAnUnknownOpcodeIsSkippedWhole) {
    const ServerProcess server;
    const WireClient client(server);
    client.send(hex("17").add(packet(callback(1))));
    client.expect_nothing();
}

TEST(Framing, BytesBehindAMessageInItsPacketAreIgnored) {
    const ServerProcess server;
    const WireClient client(server);
    EXPECT_EQ(client.ask(callback(9).add(hex("E3 01 02"))), hex("36 09 00 00 00"));
    EXPECT_EQ(client.ask(search_files(anything()).u8(4)), hex("33 00 00 00 00 00"));
    client.expect_nothing();
}

}  // namespace
}  // namespace vorrim::wire
