// File searches that look at every file: the order of the table, the limit, and how they go on.
#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

using Names = std::vector<std::string>;

// Files whose hashes do not come in the order of any table.
std::vector<Record> scattered_files(std::uint32_t count) {
    std::vector<Record> files;
    for (std::uint32_t i = 0; i < count; ++i)
        files.push_back(file(hash_of((i + 1) * 2654435761U), "song " + std::to_string(i), i));
    return files;
}

std::uint32_t first_number(const Record& record) {
    return Reader(encode(record.hash)).u32();
}

// The order of a scan: by bucket, and in a bucket by creation.
Names in_scan_order(std::vector<Record> files, std::uint32_t buckets) {
    std::ranges::stable_sort(files, {},
                             [&](const Record& record) { return first_number(record) % buckets; });
    return names(files);
}

Names everything_in_batches(const WireClient& client, const Bytes& expression,
                            std::vector<std::size_t>& batches) {
    Names all;
    for (Results batch = client.search(expression);; batch = client.more()) {
        batches.push_back(batch.records.size());
        for (const std::string& name : names(batch.records))
            all.push_back(name);
        if (!batch.more) return all;
    }
}

TEST(ScanSearch, ABatchHolds200AndGoesOnWhereItStopped) {
    for (const char* keywords : {"keywordSearch=true", "keywordSearch=false"}) {
        const ServerProcess server(keywords);
        const WireClient client = WireClient::high(server);
        const std::vector<Record> files = scattered_files(250);
        client.publish(files);
        std::vector<std::size_t> batches;
        EXPECT_EQ(everything_in_batches(client, anything(), batches), in_scan_order(files, 2333));
        EXPECT_EQ(batches, (std::vector<std::size_t>{200, 50}));
        client.send(more_results());
        client.expect_nothing();
    }
}

TEST(ScanSearch, TheOrderIsThatOfTheBucketsWhateverTheirNumber) {
    const std::vector<Record> files = scattered_files(450);
    for (const std::uint32_t buckets : {1U, 2U, 7U, 100U, 1000000U}) {
        const ServerProcess server("tableSize=" + std::to_string(buckets));
        const WireClient client = WireClient::high(server);
        client.publish(files);
        std::vector<std::size_t> batches;
        EXPECT_EQ(everything_in_batches(client, anything(), batches),
                  in_scan_order(files, buckets));
        EXPECT_EQ(batches, (std::vector<std::size_t>{200, 200, 50})) << buckets;
    }
}

TEST(ScanSearch, AtExactly200MoreIsPromisedAndNothingComes) {
    const ServerProcess server;
    const WireClient client = WireClient::high(server);
    client.publish(scattered_files(200));
    EXPECT_TRUE(client.search(anything()).more);
    const Results rest = client.more();
    EXPECT_TRUE(rest.records.empty());
    EXPECT_FALSE(rest.more);
}

TEST(ScanSearch, ItGoesOnAtAPositionNotAtAFile) {
    const ServerProcess server("tableSize=1");  // one bucket: positions are places in one row
    const WireClient client = WireClient::high(server);
    WireClient leaver = WireClient::high(server);
    leaver.publish({file(hash_of(1), "gone 1"), file(hash_of(2), "gone 2")});
    std::vector<Record> files;
    for (std::uint32_t i = 0; i < 210; ++i)
        files.push_back(file(hash_of(100 + i), "song " + std::to_string(i)));
    client.publish(files);
    const Results first = client.search(anything());
    EXPECT_EQ(names(first.records).back(), "song 197");
    leaver.close();
    server.wait_for_users(1);
    // The row has moved up by two: the place after the last result now holds a later file.
    const Results rest = client.more();
    EXPECT_EQ(names(rest.records).front(), "song 200");
    EXPECT_EQ(rest.records.size(), 10U);
}

TEST(ScanSearch, WithoutKeywordsAWordIsAnyPartOfAnyText) {
    const ServerProcess server("keywordSearch=false");
    const WireClient client = WireClient::high(server);
    client.publish(
        {file(hash_of(3), "Some_File"), file(hash_of(2), "awesome"), file(hash_of(1), "blue sky")});
    EXPECT_EQ(names(client.search(words("SOME")).records), (Names{"awesome", "Some_File"}));
    EXPECT_EQ(names(client.search(words("some_f")).records), Names{"Some_File"});
    EXPECT_EQ(names(client.search(words("e s")).records), Names{"blue sky"});
    EXPECT_EQ(names(client.search(words("sky blue")).records), Names{});  // one text, not two words
}

TEST(ScanSearch, WithoutKeywordsAWordFindsIn200s) {
    const ServerProcess server("keywordSearch=false");
    const WireClient client = WireClient::high(server);
    const std::vector<Record> files = scattered_files(250);
    client.publish(files);
    std::vector<std::size_t> batches;
    EXPECT_EQ(everything_in_batches(client, words("song"), batches), in_scan_order(files, 2333));
    EXPECT_EQ(batches, (std::vector<std::size_t>{200, 50}));
}

TEST(ScanSearch, ASearchBeforeAnyLoginIsServed) {
    const ServerProcess server;
    const WireClient publisher = WireClient::high(server);
    publisher.publish({file(hash_of(1), "open to all")});
    const WireClient stranger(server);
    EXPECT_EQ(names(stranger.search(anything()).records), Names{"open to all"});
    EXPECT_EQ(names(stranger.search(words("open")).records), Names{"open to all"});
}

// Who sees files whose sources cannot be reached.
TEST(Visibility, ALowAskerSeesOnlyFilesWithAReachableSource) {
    for (const char* keywords : {"keywordSearch=true", "keywordSearch=false"}) {
        const ServerProcess server(keywords);
        const WireClient low = WireClient::low(server);
        const WireClient high = WireClient::high(server);
        const WireClient stranger(server);
        low.publish({file(hash_of(1), "song low"), file(hash_of(2), "song both")});
        high.publish({file(hash_of(2), "song both"), file(hash_of(3), "song high")});
        const Names reachable = {"song both", "song high"};
        const Names all = {"song low", "song both", "song high"};
        for (const Bytes& expression : {words("song"), anything()}) {
            EXPECT_EQ(names(low.search(expression).records), reachable) << keywords;
            EXPECT_EQ(names(stranger.search(expression).records), reachable) << keywords;
            EXPECT_EQ(names(high.search(expression).records), all) << keywords;
        }
    }
}

TEST(Visibility, ItEndsWithTheLastReachableSource) {
    for (const char* keywords : {"keywordSearch=true", "keywordSearch=false"}) {
        const ServerProcess server(keywords);
        const WireClient low = WireClient::low(server);
        WireClient high = WireClient::high(server);
        const WireClient watcher = WireClient::high(server);
        low.publish({file(hash_of(1), "song")});
        high.publish({file(hash_of(1), "song"), file(hash_of(1), "song")});
        for (const Bytes& expression : {words("song"), anything()})
            EXPECT_EQ(low.search(expression).records.size(), 1U);
        high.close();
        server.wait_for_users(2);
        for (const Bytes& expression : {words("song"), anything()}) {
            EXPECT_EQ(low.search(expression).records.size(), 0U);
            EXPECT_EQ(watcher.search(expression).records.size(), 1U);
        }
    }
}

TEST(Visibility, HiddenFilesDoNotCountTowardsTheLimit) {
    const ServerProcess server;
    const WireClient low = WireClient::low(server);
    const WireClient high = WireClient::high(server);
    std::vector<Record> hidden;
    std::vector<Record> shown;
    for (std::uint32_t i = 0; i < 400; ++i)
        (i % 2 == 0 ? hidden : shown).push_back(file(hash_of(i), "song " + std::to_string(i)));
    low.publish(hidden);
    high.publish(shown);
    const Results scan = low.search(anything());
    EXPECT_EQ(names(scan.records), names(shown));
    const Results by_word = low.search(words("song"));
    EXPECT_EQ(names(by_word.records), names(shown));
    EXPECT_FALSE(by_word.more);
    EXPECT_EQ(high.search(words("song")).records.size(), 201U);
}

}  // namespace
}  // namespace vorrim::wire
