// What the random operations of IndexModelTest.cpp do not reach.
#include <atomic>
#include <gtest/gtest.h>
#include <malloc.h>
#include <string>
#include <thread>
#include <vector>

#include "client/KeywordFileIndex.h"
#include "tests/base/RecordingOutput.h"
#include "tests/client/Chance.h"

namespace vorrim {
namespace {

using namespace test;

constexpr ClientId kLow(5);
constexpr ClientId kHigh(0x0100007F);
constexpr ClientId kOtherHigh(0x0200007F);
constexpr ClientId kThirdHigh(0x0300007F);

// A scan by rows takes a sample first, and pauses at the beginning of every segment or among the
// candidates of one.
TEST(FileIndex, AScanFindsTheSameWhateverMisleadsItAndWhereverItPauses) {
    constexpr std::uint32_t kSegment = 4096;
    // Of eight segments every other one is looked at first, and none of those has a match.
    const auto beside_the_sample = [](std::uint32_t i) { return i / kSegment % 2 == 0; };
    const auto first_of_a_segment = [](std::uint32_t i) { return i % kSegment < 6; };
    struct Scan {
        IndexTuning tuning;
        std::uint32_t buckets;
        std::function<bool(std::uint32_t)> matches;
    };
    for (const Scan& scan : {
             Scan{{.segment_rows = kSegment, .step = 2000}, 7, beside_the_sample},
             Scan{
                 {.segment_rows = kSegment, .rows_to_judge = 8, .step = 30}, 1, first_of_a_segment},
             Scan{{.segment_rows = kSegment, .rows_to_judge = 8, .step = 3000},
                  1,
                  first_of_a_segment},
         }) {
        SCOPED_TRACE(scan.tuning.step);
        FileIndex index(scan.tuning);
        index.init(static_cast<std::int32_t>(scan.buckets));
        index.publish(files(0, 8 * kSegment,
                            [&](std::uint32_t i) { return scan.matches(i) ? "wanted" : "other"; }),
                      kHigh, kPort);
        std::vector<std::uint32_t> expected;
        for (std::uint32_t bucket = 0; bucket < scan.buckets; ++bucket)
            for (std::uint32_t i = bucket; i < 8 * kSegment; i += scan.buckets)
                if (scan.matches(i)) expected.push_back(i);
        for (const std::int32_t limit : {1000, 100000})
            EXPECT_EQ(found(index, word("wanted"), kHigh, limit), expected);
    }
}

// Most of the files leave, so that segments are packed, with their filters or with one another, and
// the frequent word's bitmaps stay; in the end all leave, and with them all memory.
void expect_order_after_departures(std::uint32_t segment_rows,
                                   const std::function<bool(std::uint32_t)>& stays) {
    KeywordFileIndex index({.segment_rows = segment_rows});
    index.init(3);
    const std::size_t allocated_before = ::mallinfo2().uordblks;
    constexpr std::uint32_t kFiles = 40000;
    std::vector<std::uint32_t> common;
    std::vector<std::uint32_t> seldom;
    std::vector<std::uint32_t> apart;
    const auto name = [](std::uint32_t n) {
        return n % 10000 == 200 ? "common seldom apart" : n % 40 == 0 ? "common seldom" : "common";
    };
    for (std::uint32_t i = 0; i < kFiles; ++i) {
        if (stays(i)) {
            common.push_back(i);
            if (i % 40 == 0) seldom.push_back(i);
            if (i % 10000 == 200) apart.push_back(i);
        }
        // Packing goes on as rows leave: some leave when the neighbours have already become fewer.
        const ClientId owner = stays(i)                     ? kHigh
                               : i % 100 == 50 || i > 30000 ? kThirdHigh
                                                            : kOtherHigh;
        for (std::uint32_t source = 0; source < 5; ++source)
            index.publish(files(i, i + 1, name), owner, kPort);
    }
    index.remove_client(kOtherHigh);
    index.remove_client(kThirdHigh);

    for (const ClientId asker : {kHigh, kLow}) {
        EXPECT_EQ(found(index, word("common"), asker, 200), common);
        EXPECT_EQ(found(index, word("common seldom"), asker, 1000000), seldom);
        for (const auto& [text, files] : {std::pair("seldom", seldom), {"apart", apart}}) {
            auto either = combine(CombineOp::kOr, word(text), word("nobody"));
            EXPECT_EQ(found(index, std::move(either), asker, 1000000).size(), files.size()) << text;
        }
    }
    index.remove_client(kHigh);
    EXPECT_EQ(index.keyword_total(), 0u);
    // Some of what is free the allocator counts as used.
    EXPECT_LT(::mallinfo2().uordblks, allocated_before + 256 * 1024);
}

TEST(KeywordFileIndex, OrderAndPositionsOutliveTheDeathOfMostFiles) {
    expect_order_after_departures(32768, [](std::uint32_t i) { return i % 20 < 9; });
    expect_order_after_departures(4096, [](std::uint32_t i) { return i % 20 == 0; });
    // The few that are left of a segment join one that keeps its filter: the next, the previous.
    for (const std::uint32_t few : {0u, 1u})
        expect_order_after_departures(16384, [few](std::uint32_t i) {
            return i / 16384 == few ? i % 200 == 0 : i % 20 < 18;
        });
}

// All operations at once; what it shows, it shows under the thread sanitizer.
constexpr int kPublishers = 3;
constexpr int kReaders = 2;

TEST(FileIndexThreads, PublishSearchAskAndLeaveTogether) {
    const RecordingOutput lines_about_unknown_operators;
    KeywordFileIndex index({.row_limit = 8000, .slice = 16});
    index.init(101);
    // Of few words, the same for all of them.
    const auto chance_of = [](int thread) {
        return Chance(static_cast<std::uint64_t>(thread), 2000, 0);
    };
    std::atomic<int> publishing = kPublishers;
    std::atomic<std::uint64_t> answers = 0;
    std::vector<std::jthread> threads;
    for (int publisher = 0; publisher < kPublishers; ++publisher)
        threads.emplace_back([&, publisher] {
            Chance chance = chance_of(publisher);
            // Two of the clients are shared: one leaves while the other still publishes.
            const ClientId own(0x01000000u + static_cast<std::uint32_t>(publisher));
            const ClientId clients[] = {own, ClientId(0), ClientId(0xFF000000)};
            // A busy machine may be slow to start the readers.
            for (int i = 0; i < 60 || answers == 0; ++i) {
                std::vector<FrozenRecord> files;
                for (std::uint32_t count = 1 + chance.below(150); count > 0; --count)
                    files.push_back(frozen(chance.record()));
                index.publish(std::move(files), clients[chance.below(3)], kPort);
                if (chance.one_in(4)) index.remove_client(clients[chance.below(3)]);
            }
            for (const ClientId client : clients)
                index.remove_client(client);
            --publishing;
        });
    for (int reader = 0; reader < kReaders; ++reader)
        threads.emplace_back([&, reader] {
            Chance chance = chance_of(kPublishers + reader);
            while (publishing > 0) {
                kx_memory_file out(4096);
                if (index.write_sources(file_hash(chance.hash()), out)) ++answers;
                Search search;
                read_into(search, chance.node(2));
                for (int batches = 0; batches < 3; ++batches) {
                    answers += index.search(search, out, 20, ClientId(0x7F000001));
                    if (search.resume_position < 0) break;
                }
                (void)index.source_total();
            }
        });
    threads.clear();  // waits for them
    // A client that left while another thread published for it has sources again.
    index.remove_client(ClientId(0));
    index.remove_client(ClientId(0xFF000000));
    EXPECT_EQ(index.source_total(), 0);
    EXPECT_EQ(index.file_total(), 0u);
    EXPECT_EQ(index.keyword_total(), 0u);
    EXPECT_GT(answers, 0u);
}

}  // namespace
}  // namespace vorrim
