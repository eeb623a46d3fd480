// Datagrams: requests without a login, and everything that gets no answer.
#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

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
            ASSERT_EQ(senders[i].receive(), hex("E3 97").u32(i * 1000 + n).u32(0).u32(0));
}

TEST(Datagrams, AFileSearchSendsOneDatagramPerFileAsForAnUnreachableClient) {
    const ServerProcess server;
    const WireClient high = WireClient::high(server);
    const WireClient low = WireClient::low(server);
    high.publish(songs(250));
    low.publish({file(hash_of(3), "hidden"), file(songs(1)[0].hash, "song 0")});
    EXPECT_EQ(server.status(), (Status{2, 252}));  // pairs of file and source
    const Datagram asker(server, high.address());
    EXPECT_TRUE(high.search(words("song")).more);
    EXPECT_EQ(asker.results(udp_search_files(words("song"))), low.search(words("song")).records);
    EXPECT_EQ(asker.results(udp_search_files(anything())), low.search(anything()).records);
    EXPECT_EQ(names(asker.results(udp_search_files(words("249")))), Names{"song 249"});
    EXPECT_TRUE(asker.results(udp_search_files(words("hidden"))).empty());
    // The searches of a connection from the same address go on as if nothing had happened.
    EXPECT_EQ(names(high.more().records), names(songs(49, 201)));
}

// More than are served at a time, each of many steps, on the only worker.
TEST(Datagrams, LongSearchesLetOthersInAndEachSenderIsAnsweredInItsOrderOrNotAtAll) {
    const ServerProcess server("threads=1\ntableSize=1");
    const WireClient client = WireClient::high(server);
    client.publish(songs(4000));
    const Bytes expression = doubled(7, Op::either, tag_is(kSize, Is::at_least, 3990));
    std::vector<Datagram> askers;
    for (int i = 0; i < 100; ++i) {
        const Datagram& asker = askers.emplace_back(server);
        asker.send(udp_search_files(expression));
        asker.send(udp_status(2).first(3));  // breaks off, and nothing behind it
        asker.send(udp_status(3));
    }
    EXPECT_EQ(client.search(words("song")).records.size(), 201U);
    for (const Datagram& asker : askers) {
        for (const std::string& name : names(songs(10, 3990)))
            ASSERT_EQ(Reader(asker.receive().from(1), 0x99).record().text(kName), name);
        EXPECT_EQ(asker.receive(), hex("E3 97").u32(3).u32(1).u32(4000));
    }
    // Of very many behind a long one the last are lost.
    askers[0].send(udp_search_files(expression));
    for (std::uint32_t challenge = 1; challenge <= 100; ++challenge)
        askers[0].send(udp_status(challenge));
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(askers[0].receive().first(2), hex("E3 99"));
    for (std::uint32_t challenge = 1; challenge <= 64; ++challenge)
        EXPECT_EQ(askers[0].receive().first(6), hex("E3 97").u32(challenge));
}

TEST(Datagrams, WhatIsNoRequestIsNotAnsweredAndOnlyUnknownOpcodesAreNamed) {
    const ServerProcess server("verbose=true");
    const Datagram asker(server);
    const std::string before = server.output();
    asker.send(Bytes());
    for (const char* marker : {"C5", "00", "E2", "E4", "FF"}) {
        asker.send(hex(marker).add(udp_status(1).from(1)));
        asker.send(hex(marker));
    }
    asker.expect_nothing();
    EXPECT_EQ(server.output(), before);

    const std::string known = "\x96\x98\x9A\x9C\x9D\xA0\xA1";
    std::string expected;
    for (unsigned opcode = 0; opcode < 256; ++opcode) {
        if (known.find(static_cast<char>(opcode)) != std::string::npos) continue;
        asker.send(hex("E3").u8(opcode).add(hash_of(1).encode()));
        asker.expect_nothing();
        expected += "ExClientDoor Unknown Msg: " + std::to_string(opcode) + '\n';
    }
    server.wait_for_output(expected);
}

TEST(Datagrams, AShortOneIsDroppedAndNothingOfAnEarlierOneIsTakenForIt) {
    const ServerProcess server;
    const WireClient high = WireClient::high(server, "somebody");
    const WireClient low = WireClient::low(server, "nobody");
    high.publish({file(hash_of(1), "song")});
    const Datagram asker(server);
    for (const Bytes& whole : {
             udp_sources(hash_of(1)),
             udp_search_files(joined(Op::both, words("song"), tag_is(kSize, Is::equal, 1000))),
             udp_search_users(tag_contains(kName, "body")),
             udp_callback(asker.address().value(), 4662, 0x00ABCDEF),
         })
        for (std::size_t length = 0; length < whole.size(); ++length) {
            EXPECT_FALSE(asker.all_answers(whole).empty());  // leaves its bytes in the buffer
            EXPECT_TRUE(asker.all_answers(whole.first(length)).empty())
                << length << " of " << ::testing::PrintToString(whole);
        }
    for (const Bytes& whole : {udp_status(0x11111111), udp_callback(0x0403020A, 4662, low.id())})
        for (std::size_t length = 2; length < whole.size(); ++length)
            EXPECT_TRUE(asker.all_answers(whole.first(length)).empty()) << length;
    low.expect_nothing();
}

TEST(Datagrams, BytesBehindARequestAreIgnoredAndAnOversizedOneDoesNoHarm) {
    const ServerProcess server;
    const Datagram asker(server);
    EXPECT_EQ(asker.ask(udp_status(7).fill(2000, 0xE3)), hex("E3 97 07 00 00 00").fill(8, 0));
    for (const std::size_t size : {3072U, 3073U, 60000U})
        static_cast<void>(asker.all_answers(udp_search_files(words(std::string(size - 5, 'a')))));
    EXPECT_EQ(server.status(), (Status{0, 0}));
}

}  // namespace
}  // namespace vorrim::wire
