// Publishing files, their sources, and what is left when publishers leave.
#include <gtest/gtest.h>
#include <utility>
#include <vector>

#include "tests/wire/harness/Datagram.h"
#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

using Sources = std::vector<Source>;

std::vector<Record> some_files(std::uint32_t count, std::uint8_t family = 0x77) {
    std::vector<Record> files;
    for (std::uint32_t i = 0; i < count; ++i)
        files.push_back(file(hash_of(i, family), "file " + std::to_string(i)));
    return files;
}

TEST(Publish, EveryFileIsCounted) {
    const ServerProcess server;
    const WireClient client = WireClient::low(server);
    client.publish(some_files(10));
    EXPECT_EQ(server.status(), (Status{1, 10}));
    client.publish({});
    client.publish(some_files(5, 0x78));
    EXPECT_EQ(server.status(), (Status{1, 15}));
}

TEST(Publish, TwoPublishersOfOneHashShareOneRecordTheFirstOnes) {
    const ServerProcess server;
    const WireClient first = WireClient::high(server);
    const WireClient second = WireClient::high(server);
    first.publish({file(hash_of(1), "the first name", 111)});
    second.publish({file(hash_of(1), "another name", 222)});

    Record kept = file(hash_of(1), "the first name", 111);
    kept.id = first.id();
    kept.port = first.announced_port();
    kept.tags.push_back(int_tag(kAvailability, 2));
    EXPECT_EQ(second.search(anything()).records, std::vector<Record>{kept});
    EXPECT_EQ(second.sources(hash_of(1)), (Sources{first.source(), second.source()}));
    EXPECT_EQ(server.status(), (Status{2, 2}));
}

TEST(Publish, AFileOfferedTwiceIsListedTwice) {
    const ServerProcess server;
    WireClient client = WireClient::high(server);
    client.publish(
        {file(hash_of(1), "again"), file(hash_of(2), "other"), file(hash_of(1), "again")});
    client.publish({file(hash_of(1), "again")});
    EXPECT_EQ(client.sources(hash_of(1)),
              (Sources{client.source(), client.source(), client.source()}));
    EXPECT_EQ(client.search(words("again")).records.at(0).number(kAvailability), 3U);
    EXPECT_EQ(server.status(), (Status{1, 4}));
    client.close();
    server.wait_for_status({0, 0});
}

TEST(Publish, TheOwnerIsTheClientWhateverTheRecordSays) {
    const ServerProcess server;
    const WireClient client = WireClient::low(server);
    Record record = file(hash_of(1), "claims");
    record.id = 0x04030201;
    record.port = 999;
    client.publish({record});
    EXPECT_EQ(client.sources(hash_of(1)), Sources{client.source()});
}

TEST(Publish, AnAvailabilityThatTheRecordBringsIsReplacedInItsPlace) {
    const ServerProcess server;
    const WireClient client = WireClient::high(server);
    Record record{hash_of(1), 0, 0, {int_tag(kAvailability, 4000), text_tag(kName, "popular")}};
    client.publish({record});
    record.id = client.id();
    record.port = client.announced_port();
    record.tags[0].number = 1;
    EXPECT_EQ(client.search(anything()).records, std::vector<Record>{record});
}

TEST(Publish, AnAvailabilityOfAnotherKindBecomesANumber) {
    const ServerProcess server;
    const WireClient client = WireClient::high(server);
    client.publish({Record{hash_of(1), 0, 0, {text_tag(kAvailability, "many")}},
                    Record{hash_of(2), 0, 0, {hash_tag(kAvailability, hash_of(3))}}});
    const Results found = client.search(tag_is(kAvailability, Is::equal, 1));
    EXPECT_EQ(found.records.size(), 2U);
}

TEST(Publish, Of231Sources230AreTold) {
    const ServerProcess server;
    const WireClient first = WireClient::high(server);
    const WireClient many = WireClient::low(server);
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
    EXPECT_EQ(read_sources(datagram.from(1), hash_of(1)), expected);
    EXPECT_EQ(last.search(anything()).records.at(0).number(kAvailability), 231U);
}

TEST(Publish, SourcesOfAnUnknownHashAreNotAnswered) {
    const ServerProcess server;
    const WireClient client = WireClient::high(server);
    client.publish({file(hash_of(1, 0x10), "near")});
    EXPECT_EQ(client.sources(hash_of(1, 0x11)), std::nullopt);  // the same first four bytes
    const Datagram asker(server);
    asker.send(udp_sources(hash_of(1, 0x11)));
    asker.expect_nothing();
}

TEST(Publish, WithTheLastSourceTheFileIsGone) {
    for (const char* setting : {"keywordSearch=true", "keywordSearch=false"}) {
        const ServerProcess server(setting);
        const WireClient watcher = WireClient::high(server);
        WireClient first = WireClient::high(server);
        WireClient second = WireClient::low(server);
        first.publish({file(hash_of(1), "shared song"), file(hash_of(2), "own song")});
        second.publish({file(hash_of(1), "shared song"), file(hash_of(3), "low song")});
        EXPECT_EQ(names(watcher.search(words("song")).records).size(), 3U);

        first.close();
        server.wait_for_users(2);
        EXPECT_EQ(server.status(), (Status{2, 2}));
        EXPECT_EQ(watcher.sources(hash_of(1)), Sources{second.source()});
        EXPECT_EQ(watcher.sources(hash_of(2)), std::nullopt);
        const std::vector<Record> left = watcher.search(words("song")).records;
        EXPECT_EQ(names(left), (std::vector<std::string>{"shared song", "low song"}));
        EXPECT_EQ(left.at(0).number(kAvailability), 1U);
        EXPECT_EQ(left.at(0).id, first.id());  // the first publisher's record, for good

        second.close();
        server.wait_for_status({1, 0});
        EXPECT_TRUE(watcher.search(words("song")).records.empty());
        EXPECT_TRUE(watcher.search(anything()).records.empty());
        EXPECT_EQ(watcher.sources(hash_of(1)), std::nullopt);
    }
}

TEST(Publish, AFileThatComesBackIsANewFile) {
    const ServerProcess server;
    const WireClient watcher = WireClient::high(server);
    {
        const WireClient old = WireClient::high(server);
        old.publish({file(hash_of(1), "ancient name")});
    }
    server.wait_for_status({1, 0});
    watcher.publish({file(hash_of(1), "modern title")});
    EXPECT_TRUE(watcher.search(words("ancient")).records.empty());
    EXPECT_EQ(names(watcher.search(words("modern")).records),
              std::vector<std::string>{"modern title"});
}

TEST(Publish, WhatStrangersPublishLeavesWithAnyStranger) {
    const ServerProcess server;
    const WireClient one(server);
    one.publish(some_files(3));
    EXPECT_EQ(server.status(), (Status{1, 3}));
    EXPECT_EQ(one.sources(hash_of(0)), (Sources{{0, 0}}));
    {
        const WireClient other(server);
        other.expect_nothing();
    }
    server.wait_for_status({1, 0});
}

TEST(Publish, FilesPublishedBeforeALoginStayIdentifierZeros) {
    const ServerProcess server;
    WireClient client(server);
    client.publish(some_files(2));
    client.login(client_record(hash_of(1), "late"));
    client.publish(some_files(3, 0x78));
    EXPECT_EQ(client.sources(hash_of(0, 0x77)), (Sources{{0, 0}}));
    EXPECT_EQ(client.sources(hash_of(0, 0x78)), Sources{client.source()});
    client.close();
    server.wait_for_status({0, 2});
    {
        const WireClient stranger(server);
        stranger.expect_nothing();
    }
    server.wait_for_status({0, 0});
}

TEST(Publish, AnUnreadableListClosesAndNothingOfItIsPublished) {
    const ServerProcess server;
    const Bytes two = encode(some_files(2));
    const Bytes good = encode(some_files(1)).from(4);
    const std::vector<Bytes> lists = {
        Bytes(),                                                    // no count
        hex("01 00 00"),                                            // half a count
        Bytes().u32(3).add(two.from(4)),                            // one record too few
        Bytes().u32(0x7FFFFFFF).add(two.from(4)),                   // far too few
        Bytes().u32(2).add(good).add(good.first(good.size() - 1)),  // the last byte is missing
        Bytes().u32(2).add(good).add(encode(hash_of(9))).u32(0).u16(0).u32(1).u8(9).text("x"),
    };
    for (const Bytes& list : lists) {
        const WireClient client = WireClient::low(server);
        client.send(hex("15").add(list));
        client.expect_closed();
    }
    server.wait_for_status({0, 0});
}

TEST(Publish, AnUnreadableListIsReported) {
    const ServerProcess server("verbose=true");
    server.wait_for_prompt();
    const WireClient client(server);
    client.send(hex("15").u32(7).add(encode(some_files(2)).from(4)));
    client.expect_closed();
    server.wait_for_output("meta #:7, n=2\nERROR: FileList::fromNetwork()\n");
}

TEST(Publish, ACountBelowZeroMeansNone) {
    const ServerProcess server;
    const WireClient client = WireClient::low(server);
    client.send(hex("15 00 00 00 80").add(encode(some_files(1)).from(4)));
    client.expect_nothing();
    EXPECT_EQ(server.status(), (Status{1, 0}));
}

TEST(Publish, AThousandFilesInOnePacket) {
    const ServerProcess server;
    WireClient client = WireClient::low(server);
    client.publish(some_files(1000));
    client.publish(some_files(1000));
    EXPECT_EQ(server.status(), (Status{1, 2000}));
    EXPECT_EQ(client.sources(hash_of(999)), (Sources{client.source(), client.source()}));
    client.close();
    server.wait_for_status({0, 0});
}

}  // namespace
}  // namespace vorrim::wire
