// Packets as the stream delivers them: in crumbs, in heaps, broken, oversized, never finished.
#include <array>
#include <fstream>

#include "tests/wire/harness/Samples.h"
#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

constexpr std::uint32_t kLargestPayload = 16U << 20U;

std::int64_t address_space_in_pages(pid_t pid) {
    std::int64_t pages = 0;
    std::ifstream("/proc/" + std::to_string(pid) + "/statm") >> pages;
    return pages;
}

// The server may answer neighbours of a kind together; nobody can tell.
TEST(Framing, QuestionsThatComeTogetherAreAnsweredAsIfTheyCameAlone) {
    const ServerProcess server;
    const WireClient client = WireClient::low(server);
    const std::vector<Record> files = songs(100);
    client.publish(files);

    Bytes segment;
    std::vector<Bytes> expected;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const Bytes question = get_sources(files[i].hash);
        const Bytes known = client.ask(question);
        segment.add(packet(question)).add(packet(get_sources(kNobody)));
        expected.push_back(known);
        if (i % 7 == 0) {
            // Bytes behind the hash are ignored, and other questions stand between.
            segment.add(packet(Bytes(question).u8(0x19)));
            segment.add(packet(find_user(kNobody))).add(packet(callback(7)));
            expected.insert(expected.end(), {known, hex("3F 00"), hex("36 07 00 00 00")});
        }
    }
    // Thousands at once.
    constexpr int kSegments = 40;
    Bytes heap;
    for (int i = 0; i < kSegments; ++i)
        heap.add(segment);
    client.send_raw(heap);
    for (int i = 0; i < kSegments; ++i)
        for (const Bytes& answer : expected)
            ASSERT_EQ(client.receive(), answer);
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

TEST(Framing, AWrongMarkerOrLengthClosesAtTheFifthByteOfTheHeader) {
    const ServerProcess server;
    for (const char* header :
         {"00 11 00 00 00", "C5 11 00 00 00", "E2 11 00 00 00", "E4 11 00 00 00", "FF 11 00 00 00",
          "E3 00 00 00 00", "E3 01 00 00 01", "E3 FF FF FF 7F", "E3 00 00 00 80"}) {
        SCOPED_TRACE(header);
        const WireClient client(server);
        client.send_raw(packet(callback(1)).add(hex(header).first(4)));
        EXPECT_EQ(client.receive(), hex("36 01 00 00 00"));  // what came before is answered
        static_cast<void>(server.status());
        EXPECT_TRUE(client.silent());
        client.send_raw(hex(header).from(4));
        client.expect_closed();
    }
    server.wait_for_users(0);
}

TEST(Framing, APacketOfTheMaximumLengthIsOnePacket) {
    const ServerProcess server;
    const WireClient client(server);
    client.send_raw(hex("E3").u32(kLargestPayload).u8(0x30).fill(kLargestPayload - 1, 0xE3));
    client.expect_nothing();
}

TEST(Framing, AnAnnouncedLengthReservesNothing) {
    const ServerProcess server;
    constexpr int kClients = 100;
    const std::vector<WireClient> clients = strangers(server, kClients);
    const std::int64_t before = address_space_in_pages(server.pid());
    for (const WireClient& client : clients)
        client.send_raw(hex("E3").u32(kLargestPayload).u8(0x15));
    static_cast<void>(WireClient::low(server));  // they have been read when others are served
    static_cast<void>(server.status());
    constexpr std::int64_t kPagesOfAll = std::int64_t{kClients} * kLargestPayload / 4096;
    EXPECT_LT(address_space_in_pages(server.pid()) - before, kPagesOfAll / 4);
}

TEST(Framing, UnknownOpcodesKeepTheConnection) {
    const ServerProcess server("verbose=true");
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

TEST(Framing, WhatStandsBehindAMessageInItsPacketIsSkipped) {
    const ServerProcess server;
    const WireClient client(server);
    EXPECT_TRUE(client.answers(hex("17").add(packet(callback(1)))).empty());
    EXPECT_EQ(client.ask(callback(9).add(hex("E3 01 02"))), hex("36 09 00 00 00"));
    EXPECT_EQ(client.ask(search_files(anything()).u8(4)), hex("33 00 00 00 00 00"));
    client.expect_nothing();
}

TEST(Framing, AMessageMayBeCutAtEveryByteAndSomeCloseThen) {
    const ServerProcess server("verbose=true\npublic=true");
    for (const Bytes& whole : every_message())
        for (std::size_t length = 1; length < whole.size(); ++length) {
            const WireClient client(server);
            client.send(whole.first(length));
            if (std::string("\x01\x15\x16\x19\x1B\x1C\x1F\x20").find(static_cast<char>(whole[0])) !=
                std::string::npos)
                client.expect_closed();
        }
    server.wait_for_status({0, 0});
}

}  // namespace
}  // namespace vorrim::wire
