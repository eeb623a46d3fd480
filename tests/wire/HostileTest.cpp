// Bytes made to do harm. After each of them an honest client is answered by the same server.
#include <cstdint>
#include <gtest/gtest.h>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "tests/wire/harness/Datagram.h"
#include "tests/wire/harness/Samples.h"
#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

// The server is whole: somebody logs in, publishes, finds, and leaves nothing behind.
void expect_honest_service(const ServerProcess& server) {
    {
        const WireClient honest = WireClient::high(server, "honest");
        honest.publish({file(hash_of(0x600D, 0x60), "an honest file")});
        EXPECT_EQ(names(honest.search(words("honest")).records),
                  std::vector<std::string>{"an honest file"});
        EXPECT_EQ(honest.sources(hash_of(0x600D, 0x60)), std::vector<Source>{honest.source()});
        EXPECT_GE(honest.users(words("honest")).size(), 1U);
    }
    server.wait_for_status({0, 0});
}

std::mt19937 seeded() {
    const std::uint32_t seed = std::random_device()();
    std::cout << "seed " << seed << '\n';
    return std::mt19937(seed);
}

Bytes noise(std::mt19937& chance, std::size_t length) {
    Bytes bytes;
    for (std::size_t i = 0; i < length; ++i)
        bytes.u8(static_cast<std::uint32_t>(chance()));
    return bytes;
}

TEST(Hostile, NoiseInsteadOfPackets) {
    std::mt19937 chance = seeded();
    const ServerProcess server("verbose=true");
    for (int i = 0; i < 200; ++i) {
        const WireClient client(server);
        static_cast<void>(client.send_some(noise(chance, 1 + chance() % 2000)));
    }
    expect_honest_service(server);
}

TEST(Hostile, NoiseInsidePackets) {
    std::mt19937 chance = seeded();
    const ServerProcess server("verbose=true");
    const std::vector<Bytes> messages = every_message();
    for (int i = 0; i < 300; ++i) {
        const WireClient client(server);
        const std::uint32_t opcode = messages[chance() % messages.size()][0];
        static_cast<void>(
            client.send_some(packet(Bytes().u8(opcode).add(noise(chance, chance() % 300)))));
    }
    expect_honest_service(server);
}

TEST(Hostile, GoodMessagesWithOneByteChanged) {
    std::mt19937 chance = seeded();
    const ServerProcess server("verbose=true");
    const std::vector<Bytes> messages = every_message();
    for (int i = 0; i < 1000; ++i) {
        const Bytes& good = messages[chance() % messages.size()];
        const std::size_t at = 1 + chance() % good.size();
        const WireClient client(server);
        static_cast<void>(client.send_some(
            packet(Bytes(good.first(at)).add(noise(chance, 1)).add(good.from(at + 1)))));
    }
    server.wait_for_users(0);
    {
        const WireClient stranger(server);  // with whom whatever strangers published leaves
        stranger.expect_nothing();
    }
    expect_honest_service(server);
}

TEST(Hostile, EveryMessageCutAtEveryByte) {
    const ServerProcess server("verbose=true");
    for (const Bytes& whole : every_message()) {
        const bool closes_when_cut =
            std::string("\x01\x15\x16\x19\x1B\x1C\x20").find(static_cast<char>(whole[0])) !=
            std::string::npos;
        for (std::size_t length = 1; length < whole.size(); ++length) {
            const WireClient client(server);
            client.send(whole.first(length));
            if (closes_when_cut) client.expect_closed();
        }
    }
    server.wait_for_users(0);
    expect_honest_service(server);
}

TEST(Hostile, EveryDatagramCutChangedAndMadeOfNoise) {
    std::mt19937 chance = seeded();
    const ServerProcess server("verbose=true\npublic=true");
    const Datagram sender(server);
    const auto send = [&](const Bytes& datagram) {
        static_cast<void>(sender.all_answers(datagram));
    };
    for (const Bytes& whole : every_datagram()) {
        for (std::size_t length = 0; length <= whole.size(); ++length)
            send(whole.first(length));
        for (int i = 0; i < 30; ++i) {
            const std::size_t at = 1 + chance() % whole.size();
            send(Bytes(whole.first(at)).add(noise(chance, 1)).add(whole.from(at + 1)));
            send(Bytes(whole.first(2)).add(noise(chance, chance() % 1400)));
        }
    }
    for (int i = 0; i < 200; ++i)
        send(hex("E3").add(noise(chance, chance() % 1400)));
    expect_honest_service(server);
}

TEST(Hostile, CountsFarBeyondTheData) {
    const ServerProcess server;
    const Bytes record_start = encode(hash_of(1)).u32(0).u16(0);
    for (const std::uint32_t count : {0x7FFFFFFFU, 0x10000U, 0x00FFFFFFU}) {
        const Bytes tag = encode(int_tag(kSize, 1));
        for (const Bytes& payload :
             {hex("01").add(record_start).u32(count).add(tag),         // tags of a client
              hex("15").u32(count).add(record_start).u32(1).add(tag),  // files
              hex("15").u32(1).add(record_start).u32(count).add(tag),  // tags of a file
              hex("16 01 F0 FF").add(Bytes().u32(count)),              // letters
              hex("16 02 F0 FF").add(Bytes().u32(count))}) {
            const WireClient client(server);
            client.send(payload);
            client.expect_closed();
        }
    }
    expect_honest_service(server);
}

TEST(Hostile, RecordsAndListsAsLargeAsAPacketAllows) {
    const ServerProcess server;
    constexpr std::size_t kPlenty = 1000000;
    {
        const WireClient client(server);  // a million tags, the smallest there are
        Bytes many = hex("15").u32(1).add(encode(hash_of(1))).u32(0).u16(0).u32(kPlenty);
        for (std::size_t i = 0; i < kPlenty; ++i)
            many.u8(2).u16(0).u16(0);
        client.publish({});
        client.send(many);
        client.expect_nothing();
        EXPECT_EQ(server.status().files, 1U);
    }
    server.wait_for_status({0, 0});
    {
        const WireClient client(server);  // texts of the greatest length
        std::vector<Record> files;
        for (std::uint32_t i = 0; i < 50; ++i)
            files.push_back(Record{
                hash_of(i), 0, 0, {text_tag(std::string(65534, 'n'), std::string(65534, 'v'))}});
        client.publish(files);
        EXPECT_EQ(server.status().files, 50U);
    }
    server.wait_for_status({0, 0});
    expect_honest_service(server);
}

TEST(Hostile, ThousandsOfUnreadableDepths) {
    const ServerProcess server;
    constexpr std::size_t kDeep = 4000000;
    for (const std::uint32_t opcode : {0x16U, 0x1AU}) {
        const WireClient client(server);
        client.send(Bytes().u8(opcode).fill(kDeep, 0));
        if (opcode == 0x16U)
            client.expect_closed();
        else
            client.expect_nothing();
    }
    expect_honest_service(server);
}

TEST(Hostile, OneWhoNeverReadsHoldsUpNobody) {
    const ServerProcess server("threads=1");
    const WireClient publisher = WireClient::high(server);
    std::vector<Record> files;
    for (std::uint32_t i = 0; i < 201; ++i)
        files.push_back(file(hash_of(i), "song " + std::string(200, 'x')));
    publisher.publish(files);
    const WireClient greedy = WireClient::high(server);
    const Bytes request = packet(search_files(words("song")));
    for (int i = 0; i < 5000; ++i)  // some 300 megabytes of answers
        if (greedy.send_some(request) != request.size()) break;
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(publisher.search(words("song")).records.size(), 201U);
    EXPECT_EQ(WireClient::low(server).id(), 1U);
}

}  // namespace
}  // namespace vorrim::wire
