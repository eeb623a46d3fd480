// File searches: by a word, on the keyword index, and by a look at every file. Which files are
// found, in which order, where a batch ends and how it goes on.
#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

// The names of a batch, and whether more is promised.
using Batch = std::pair<Names, bool>;

Batch batch(const Results& results) {
    return {names(results.records), results.more};
}

Batch batch(std::uint32_t count, std::uint32_t first, bool more) {
    return {names(songs(count, first)), more};
}

class KeywordSearch : public ::testing::Test {
protected:
    const ServerProcess server_;
    const WireClient client_ = WireClient::high(server_);
};

TEST_F(KeywordSearch, ABatchHolds201AndGoesOnWhereItStopped) {
    client_.publish(songs(200));
    EXPECT_EQ(batch(client_.search(words("song"))), batch(200, 0, false));
    client_.publish(songs(1, 200));
    EXPECT_EQ(batch(client_.search(words("song"))), batch(201, 0, true));
    EXPECT_EQ(batch(client_.more()), batch(0, 0, false));

    client_.publish(songs(799, 201));
    const Bytes upper_half = joined(Op::both, words("song"), tag_is(kSize, Is::above, 499));
    EXPECT_EQ(batch(client_.search(upper_half)), batch(201, 500, true));
    EXPECT_EQ(batch(client_.more()), batch(201, 701, true));
    EXPECT_EQ(batch(client_.more()), batch(98, 902, false));
    EXPECT_TRUE(client_.answers(more_results()).empty());
}

TEST_F(KeywordSearch, EachConnectionGoesOnWithItsOwnLatestSearchAndSeesWhatCameMeanwhile) {
    client_.publish(songs(210));
    const WireClient other = WireClient::high(server_);
    const Bytes unreadable = search_users(hex("05"));
    for (const Bytes& next :
         {search_files(words("209")), search_users(words("nobody")), unreadable}) {
        EXPECT_TRUE(client_.search(words("song")).more);
        EXPECT_EQ(client_.answers(next).size(), next == unreadable ? 0U : 1U);
        EXPECT_TRUE(client_.answers(more_results()).empty()) << ::testing::PrintToString(next);
    }
    EXPECT_TRUE(client_.search(words("song")).more);
    EXPECT_FALSE(other.search(words("missing")).more);
    client_.publish(songs(5, 210));
    EXPECT_TRUE(other.answers(more_results()).empty());
    EXPECT_EQ(batch(client_.more()), batch(14, 201, false));
}

TEST_F(KeywordSearch, FindsByTheFirstWordWholeAndByTheOthersInPart) {
    const std::string run = std::string(255, 'x') + std::string(45, 'y');
    std::uint32_t number = 0;
    for (const std::string& name :
         {std::string("Some_File-name.mp3"), std::string("SOME other"), std::string("awesome"),
          std::string("Blue Sky"), std::string("blue skin"), std::string("sky blue"),
          std::string("left+right"), std::string("a A a b c d e f g h i j k"), run})
        client_.publish({file(hash_of(++number), name)});
    const Names all_ten = {"a A a b c d e f g h i j k"};
    const std::vector<std::pair<Bytes, Names>> rows = {
        {words("SoMe"), {"Some_File-name.mp3", "SOME other"}},
        {words("mp3"), {"Some_File-name.mp3"}},
        {words("som"), {}},
        {words("some_file"), {}},  // only blanks divide a searched text
        {words("left"), {}},
        {words("left+right"), {"left+right"}},
        {words("j"), all_ten},
        {words("k"), {}},  // the eleventh word
        {words("a k"), all_ten},
        {words("  blue   SK "), {"Blue Sky", "blue skin", "sky blue"}},
        {words("sk blue"), {}},
        {words(std::string(254, 'x')), {}},
        {words(std::string(45, 'y')), {run}},
        {words(run), {run}},  // divided in the same way
        {joined(Op::both, tag_is(kSize, Is::equal, 1000), words("sky")), {"Blue Sky", "sky blue"}},
        // No keyword: every file is looked at, and every part of a word counts.
        {joined(Op::either, words("lue sk"), words("WES")), {"awesome", "Blue Sky", "blue skin"}},
        {joined(Op::but_not, words("blu"), words("sky")), {"blue skin"}},
        {tag_contains(kName, "sky"), {"Blue Sky", "sky blue"}},
    };
    for (const auto& [expression, found] : rows)
        EXPECT_EQ(names(client_.search(expression).records), found)
            << ::testing::PrintToString(expression);
}

// With one bucket the files are met as they came. At exactly 200 more is promised, and nothing
// comes.
TEST(ScanSearch, ABatchHolds200AndGoesOnWhereItStopped) {
    for (const auto& [settings, expression] :
         {std::pair("tableSize=0", anything()),
          std::pair("tableSize=0\nkeywordSearch=false", words("song"))}) {
        SCOPED_TRACE(settings);
        const ServerProcess server(settings);
        const WireClient client = WireClient::high(server);
        client.publish(songs(400));
        EXPECT_EQ(batch(client.search(expression)), batch(200, 0, true));
        EXPECT_EQ(batch(client.more()), batch(200, 200, true));
        EXPECT_EQ(batch(client.more()), batch(0, 0, false));
        EXPECT_TRUE(client.answers(more_results()).empty());
    }
}

// A hundred steps, on the only worker: the asker's next answer waits for it, another's does not.
TEST(ScanSearch, ALongSearchLetsOthersIn) {
    const ServerProcess server("threads=1\ntableSize=1");
    const WireClient asker = WireClient::high(server);
    WireClient impatient = WireClient::high(server);
    const WireClient other = WireClient::high(server);
    asker.publish(songs(400));
    const Bytes expression = doubled(14, Op::either, tag_is(kSize, Is::at_least, 390));
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

}  // namespace
}  // namespace vorrim::wire
