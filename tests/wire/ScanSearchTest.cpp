// File searches that look at every file: the order of the table, the limit, and how they go on.
#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/wire/harness/Datagram.h"
#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

// The order of a scan: by bucket, and in a bucket by creation.
Names in_scan_order(std::vector<Record> files, std::uint32_t buckets) {
    std::ranges::stable_sort(files, {}, [&](const Record& record) {
        return Reader(encode(record.hash)).u32() % buckets;
    });
    return names(files);
}

TEST(ScanSearch, BatchesOf200FollowTheBucketsWhateverTheirNumber) {
    struct Row {
        std::string settings;
        std::uint32_t buckets;
        Bytes expression;
    };
    for (const Row& row :
         {Row{"keywordSearch=true", 2333, anything()}, Row{"keywordSearch=false", 2333, anything()},
          Row{"keywordSearch=false", 2333, words("song")}, Row{"tableSize=1", 1, anything()},
          Row{"tableSize=7", 7, anything()}, Row{"tableSize=1000000", 1000000, anything()}}) {
        SCOPED_TRACE(row.settings);
        const ServerProcess server(row.settings);
        const WireClient client = WireClient::high(server);
        client.publish(songs(400));
        Names all;
        std::vector<std::size_t> batches;
        // At exactly 200 more is promised, and nothing comes.
        for (Results batch = client.search(row.expression);; batch = client.more()) {
            batches.push_back(batch.records.size());
            std::ranges::copy(names(batch.records), std::back_inserter(all));
            if (!batch.more) break;
        }
        EXPECT_EQ(all, in_scan_order(songs(400), row.buckets));
        EXPECT_EQ(batches, (std::vector<std::size_t>{200, 200, 0}));
        EXPECT_TRUE(client.answers(more_results()).empty());
    }
}

TEST(ScanSearch, ItGoesOnAtAPositionNotAtAFile) {
    const ServerProcess server("tableSize=1");  // one bucket: positions are places in one row
    const WireClient client = WireClient::high(server);
    WireClient leaver = WireClient::high(server);
    leaver.publish({file(hash_of(1), "gone 1"), file(hash_of(2), "gone 2")});
    client.publish(songs(210));
    EXPECT_EQ(names(client.search(anything()).records).back(), "song 197");
    leaver.close();
    server.wait_for_users(1);
    // The row has moved up by two: the place after the last result now holds a later file.
    EXPECT_EQ(names(client.more().records), names(songs(10, 200)));
}

// A hundred steps, on the only worker: the asker's next answer waits for it, another's does not.
TEST(ScanSearch, ALongSearchLetsOthersIn) {
    const ServerProcess server("threads=1\ntableSize=1");
    const WireClient asker = WireClient::high(server);
    WireClient impatient = WireClient::high(server);
    const WireClient other = WireClient::high(server);
    asker.publish(songs(400));
    Bytes expression = tag_is("\x02", Is::at_least, 390);
    for (int doubled = 0; doubled < 14; ++doubled)
        expression = joined(Op::either, expression, expression);
    impatient.send(search_files(expression));
    asker.send(search_files(expression));
    asker.send(search_files(words("7")));
    impatient.close();
    int served = 0;
    for (; asker.silent(); ++served)
        EXPECT_EQ(other.search(words("song")).records.size(), 201U);
    EXPECT_GT(served, 2);
    EXPECT_EQ(names(read_results(asker.receive()).records), names(songs(10, 390)));
    EXPECT_EQ(names(read_results(asker.receive()).records), (Names{"song 7"}));
}

TEST(ScanSearch, LongSearchesByDatagramLetOthersInAndAllAreAnswered) {
    const ServerProcess server("threads=1\ntableSize=1");
    const WireClient client = WireClient::high(server);
    client.publish(songs(4000));
    Bytes expression = tag_is("\x02", Is::at_least, 3990);
    for (int doubled = 0; doubled < 7; ++doubled)
        expression = joined(Op::either, expression, expression);
    std::vector<Datagram> askers;  // more than are served at a time
    for (int i = 0; i < 100; ++i)
        askers.emplace_back(server).send(udp_search_files(expression));
    EXPECT_EQ(client.search(words("song")).records.size(), 201U);
    for (const Datagram& asker : askers) {
        std::vector<Record> found;
        while (found.size() < 10)
            found.push_back(asker.result());
        EXPECT_EQ(names(found), names(songs(10, 3990)));
        asker.expect_nothing();
    }
}

TEST(ScanSearch, WithoutKeywordsAWordIsAnyPartOfAnyText) {
    const ServerProcess server("keywordSearch=false");
    const WireClient client = WireClient::high(server);
    client.publish(
        {file(hash_of(3), "Some_File"), file(hash_of(2), "awesome"), file(hash_of(1), "blue sky")});
    EXPECT_EQ(names(client.search(words("SOME")).records), (Names{"awesome", "Some_File"}));
    EXPECT_EQ(names(client.search(words("e s")).records), Names{"blue sky"});
    EXPECT_EQ(names(client.search(words("sky blue")).records), Names{});  // one text, not two words
}

// Only who is reachable sees files that no reachable client has.
TEST(Visibility, OthersSeeAFileAsLongAsItHasAReachableSource) {
    for (const char* keywords : {"keywordSearch=true", "keywordSearch=false"}) {
        SCOPED_TRACE(keywords);
        const ServerProcess server(keywords);
        const WireClient low = WireClient::low(server);
        WireClient high = WireClient::high(server);
        const WireClient watcher = WireClient::high(server);
        const WireClient stranger(server);
        low.publish({file(hash_of(1), "song low"), file(hash_of(2), "song both")});
        high.publish({file(hash_of(2), "song both"), file(hash_of(2), "song both"),
                      file(hash_of(3), "song high")});
        for (const Bytes& expression : {words("song"), anything()}) {
            EXPECT_EQ(names(low.search(expression).records), (Names{"song both", "song high"}));
            EXPECT_EQ(names(stranger.search(expression).records),
                      (Names{"song both", "song high"}));
            EXPECT_EQ(names(watcher.search(expression).records),
                      (Names{"song low", "song both", "song high"}));
        }
        high.close();
        server.wait_for_users(3);
        for (const Bytes& expression : {words("song"), anything()}) {
            EXPECT_EQ(low.search(expression).records.size(), 0U);
            EXPECT_EQ(watcher.search(expression).records.size(), 2U);
        }
    }
}

TEST(Visibility, HiddenFilesDoNotCountTowardsTheLimit) {
    const ServerProcess server;
    const WireClient low = WireClient::low(server);
    const WireClient high = WireClient::high(server);
    low.publish(songs(200));
    high.publish(songs(200, 200));
    EXPECT_EQ(low.search(anything()).records.size(), 200U);
    const Results by_word = low.search(words("song"));
    EXPECT_EQ(names(by_word.records), names(songs(200, 200)));
    EXPECT_FALSE(by_word.more);
    EXPECT_EQ(high.search(words("song")).records.size(), 201U);
}

}  // namespace
}  // namespace vorrim::wire
