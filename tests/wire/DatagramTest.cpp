// Datagrams: requests without a login, and everything that gets no answer.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/wire/harness/Datagram.h"
#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

using Names = std::vector<std::string>;

TEST(Datagrams, TheStatusCountsConnectionsAndPairsOfFileAndSource) {
    const ServerProcess server;
    EXPECT_EQ(server.status(), (Status{0, 0}));
    const WireClient stranger(server);
    const WireClient one = WireClient::low(server);
    const WireClient two = WireClient::high(server);
    one.publish({file(hash_of(1), "a"), file(hash_of(2), "b"), file(hash_of(3), "c")});
    two.publish({file(hash_of(1), "a"), file(hash_of(2), "b")});
    stranger.expect_nothing();
    EXPECT_EQ(Datagram(server).ask(udp_status(0xFFFFFFFF)),
              hex("E3 97 FF FF FF FF 03 00 00 00 05 00 00 00"));
}

TEST(Datagrams, EachSenderGetsItsOwnAnswersInABurst) {
    const ServerProcess server;
    constexpr std::uint32_t kSenders = 10;
    constexpr std::uint32_t kEach = 20;
    std::vector<Datagram> senders;
    for (std::uint32_t i = 0; i < kSenders; ++i)
        senders.emplace_back(server);
    for (std::uint32_t n = 0; n < kEach; ++n)
        for (std::uint32_t i = 0; i < kSenders; ++i)
            senders[i].send(udp_status(i * 1000 + n));
    for (std::uint32_t i = 0; i < kSenders; ++i)
        for (std::uint32_t n = 0; n < kEach; ++n)
            ASSERT_EQ(senders[i].receive(),
                      Bytes().u8(0xE3).u8(0x97).u32(i * 1000 + n).u32(0).u32(0));
}

TEST(Datagrams, AFileSearchSendsOneDatagramPerFile) {
    const ServerProcess server;
    const WireClient high = WireClient::high(server);
    const WireClient low = WireClient::low(server);
    high.publish({file(hash_of(2), "song two"), file(hash_of(1), "song one")});
    low.publish({file(hash_of(3), "song hidden"), file(hash_of(2), "song two")});
    const Datagram asker(server);
    EXPECT_EQ(asker.results(udp_search_files(words("song"))),
              low.search(words("song")).records);  // whoever asks by datagram counts as low
    EXPECT_EQ(names(asker.results(udp_search_files(words("song")))),
              (Names{"song two", "song one"}));
    EXPECT_EQ(names(asker.results(udp_search_files(anything()))), (Names{"song one", "song two"}));
    EXPECT_TRUE(asker.results(udp_search_files(words("hidden"))).empty());
    EXPECT_TRUE(asker.results(udp_search_files(words("nothing"))).empty());
}

TEST(Datagrams, AFileSearchKeepsTheLimitsOfItsKind) {
    const ServerProcess server;
    const WireClient high = WireClient::high(server);
    std::vector<Record> files;
    for (std::uint32_t i = 0; i < 250; ++i)
        files.push_back(file(hash_of(i), "song " + std::to_string(i)));
    high.publish(files);
    const Names all = names(files);
    const Datagram asker(server);
    EXPECT_EQ(names(asker.results(udp_search_files(words("song")))),
              Names(all.begin(), all.begin() + 201));
    EXPECT_EQ(names(asker.results(udp_search_files(anything()))),
              Names(all.begin(), all.begin() + 200));
}

TEST(Datagrams, ASearchByDatagramDoesNotTouchAConnectionsSearch) {
    const ServerProcess server;
    const WireClient high = WireClient::high(server);
    std::vector<Record> files;
    for (std::uint32_t i = 0; i < 202; ++i)
        files.push_back(file(hash_of(i), "song " + std::to_string(i)));
    high.publish(files);
    EXPECT_TRUE(high.search(words("song")).more);
    EXPECT_EQ(Datagram(server, high.address()).results(udp_search_files(words("201"))).size(), 1U);
    EXPECT_EQ(names(high.more().records), Names{"song 201"});
}

TEST(Datagrams, AWrongMarkerOrNoneIsDroppedWithoutAWord) {
    const ServerProcess server("verbose=true");
    server.wait_for_prompt();
    const Datagram asker(server);
    const std::string before = server.output();
    for (const char* marker : {"C5", "00", "E2", "E4", "FF"}) {
        asker.send(hex(marker).add(udp_status(1).from(1)));
        asker.send(hex(marker));
    }
    asker.send(Bytes());
    asker.expect_nothing();
    EXPECT_EQ(server.output(), before);
}

TEST(Datagrams, UnknownOpcodesAreNamedAndNotAnswered) {
    const ServerProcess server("verbose=true");
    server.wait_for_prompt();
    const Datagram asker(server);
    const std::string known = "\x96\x98\x9A\x9C\x9D\xA0\xA1";
    std::string expected;
    for (unsigned opcode = 0; opcode < 256; ++opcode) {
        if (known.find(static_cast<char>(opcode)) != std::string::npos) continue;
        asker.send(hex("E3").u8(opcode).add(encode(hash_of(1))));
        asker.expect_nothing();
        expected += "ExClientDoor Unknown Msg: " + std::to_string(opcode) + '\n';
    }
    server.wait_for_output(expected);
}

TEST(Datagrams, ServersAreNotHeardWhileTheServerIsNotPublic) {
    const ServerProcess server("verbose=true");
    server.wait_for_prompt();
    const Datagram asker(server);
    const std::string before = server.output();
    asker.send(hex("E3 A0").u32(asker.address().value()).u16(4661));
    asker.send(hex("E3 A1").u32(asker.address().value()).u16(4661).u8(1).u32(0x01020304).u16(4661));
    asker.expect_nothing();
    EXPECT_EQ(server.output(), before);
    const WireClient client(server);
    EXPECT_EQ(client.ask(hex("14")), hex("32 00"));
}

TEST(Datagrams, AShortOneIsDroppedAndNothingOfAnEarlierOneIsTakenForIt) {
    const ServerProcess server;
    const WireClient high = WireClient::high(server, "somebody");
    const WireClient low = WireClient::low(server, "nobody");
    high.publish({file(hash_of(1), "song")});
    const Datagram asker(server);
    const std::vector<Bytes> requests = {
        udp_sources(hash_of(1)),
        udp_search_files(joined(Op::both, words("song"), tag_is(kSize, Is::equal, 1000))),
        udp_search_users(tag_contains(kName, "body")),
        udp_callback(asker.address().value(), 4662, 0x00ABCDEF),
    };
    for (const Bytes& whole : requests) {
        for (std::size_t length = 0; length < whole.size(); ++length) {
            EXPECT_FALSE(
                asker.all_answers(whole).empty());  // leaves its bytes in the server's buffer
            EXPECT_TRUE(asker.all_answers(whole.first(length)).empty())
                << length << " of " << ::testing::PrintToString(whole);
        }
    }
    for (std::size_t length = 2; length < 6; ++length) {
        asker.send(udp_status(0x11111111).first(length));
        asker.expect_nothing();
    }
    for (std::size_t length = 2; length < 12; ++length) {
        asker.send(udp_callback(0x0403020A, 4662, low.id()).first(length));
        asker.expect_nothing();
    }
    low.expect_nothing();
}

TEST(Datagrams, BytesBehindARequestAreIgnored) {
    const ServerProcess server;
    const Datagram asker(server);
    EXPECT_EQ(asker.ask(udp_status(7).fill(2000, 0xE3)), hex("E3 97 07 00 00 00").fill(8, 0));
}

TEST(Datagrams, AnOversizedOneDoesNoHarm) {
    const ServerProcess server;
    const Datagram asker(server);
    for (const std::size_t size : {3072U, 3073U, 4000U, 60000U})
        static_cast<void>(asker.all_answers(udp_search_files(words(std::string(size - 5, 'a')))));
    EXPECT_EQ(server.status(), (Status{0, 0}));
}

}  // namespace
}  // namespace vorrim::wire
