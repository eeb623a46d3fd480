// The rules of the index, one by one; their mixtures are in IndexModelTest.cpp.
#include <gtest/gtest.h>
#include <malloc.h>
#include <string>
#include <vector>

#include "client/FileIndex.h"
#include "client/KeywordFileIndex.h"
#include "tests/client/IndexModel.h"
#include "tests/search/SearchFixture.h"

namespace vorrim {
namespace {

using namespace test;

constexpr ClientId kLow(5);
constexpr ClientId kLowLimit(kHighestLowId);
constexpr ClientId kHigh(0x0100007F);
constexpr ClientId kOtherHigh(0x0200007F);
constexpr std::uint16_t kPort = 4662;
constexpr std::int32_t kLimit = 200;

FileHash hash_of(std::uint32_t number) {
    FileHash hash;
    store_32(hash.bytes.data(), number);
    return hash;
}

FrozenRecord file(std::uint32_t number, std::string_view name) {
    kx_memory_file wire(256);
    write_bytes(wire, hash_of(number).bytes);
    write_32(wire, 0);
    write_16(wire, 0);
    write_32(wire, 1);
    write_8(wire, TagType::text);
    write_string("\x01", wire);
    write_string(name, wire);
    wire.seek(0);
    return FrozenRecord::from_network(wire);
}

template <class... Files>
std::vector<FrozenRecord> list(Files&&... files) {
    std::vector<FrozenRecord> records;
    (records.push_back(std::forward<Files>(files)), ...);
    return records;
}

std::vector<FrozenRecord> numbered(std::uint32_t first, std::uint32_t end, std::string_view name) {
    std::vector<FrozenRecord> records;
    for (std::uint32_t i = first; i < end; ++i)
        records.push_back(file(i, name));
    return records;
}

struct Batch {
    std::vector<std::uint32_t> numbers;  // of the files, in order
    std::vector<std::uint32_t> availability;
};

Batch batch(const FileIndex& index, Search& search, ClientId asker = kHigh,
            std::int32_t limit = kLimit) {
    Batch found;
    index.search(
        search,
        [&](RecordView record) {
            found.numbers.push_back(record.hash().first_u32());
            found.availability.push_back(record.int_tag("\x15"));
        },
        limit, asker);
    return found;
}

Search all() {
    return search_of(std::make_unique<SN_All>());
}

std::uint32_t count(const FileIndex& index, Search search, ClientId asker = kHigh) {
    return static_cast<std::uint32_t>(batch(index, search, asker, 1000000).numbers.size());
}

// Both kinds, where the rule holds for both.
class FileIndexTest : public testing::TestWithParam<bool> {
protected:
    FileIndexTest() {
        if (GetParam())
            index_ = std::make_unique<KeywordFileIndex>();
        else
            index_ = std::make_unique<FileIndex>();
        index_->init(2333);
    }
    std::string sources(std::uint32_t number) const {
        kx_memory_file out(64);
        if (!index_->write_sources(hash_of(number), out)) return "none";
        const auto bytes = out.written();
        return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
    }
    std::unique_ptr<FileIndex> index_;
};

INSTANTIATE_TEST_SUITE_P(Kinds, FileIndexTest, testing::Bool(),
                         [](const auto& instance) { return instance.param ? "Keyword" : "Plain"; });

TEST_P(FileIndexTest, TwoPublishersMakeOneEntryWithTheRecordOfTheFirst) {
    index_->publish(list(file(1, "first name")), kHigh, kPort);
    index_->publish(list(file(1, "second name")), kLow, 7);
    EXPECT_EQ(index_->source_total(), 2);
    EXPECT_EQ(index_->file_total(), 1u);
    EXPECT_EQ(sources(1), test::Bytes(reinterpret_cast<const char*>(hash_of(1).bytes.data()), 16) +
                              bytes("\x02\x7F\0\0\x01\x36\x12\x05\0\0\0\x07\0"));
    EXPECT_EQ(count(*index_, search_of(word("first"))), 1u);
    EXPECT_EQ(count(*index_, search_of(word("second"))), 0u);
    Search search = all();
    EXPECT_EQ(batch(*index_, search).availability, std::vector<std::uint32_t>{2});

    index_->remove_client(kHigh);
    EXPECT_EQ(count(*index_, search_of(word("first")), kLow), 0u) << "no source is reachable";
    index_->publish(list(file(1, "third name")), kOtherHigh, kPort);
    EXPECT_EQ(count(*index_, search_of(word("first")), kLow), 1u)
        << "the record outlives its publisher";
}

TEST_P(FileIndexTest, AReplyNamesAtMost230Sources) {
    for (std::uint32_t i = 0; i < 231; ++i)
        index_->publish(list(file(1, "x")), ClientId(i), 1);
    const std::string reply = sources(1);
    EXPECT_EQ(reply.size(), 16 + 1 + 230 * 6u);
    EXPECT_EQ(reply.substr(16, 8), bytes("\xE6\0\0\0\0\x01\0\x01"));
    EXPECT_EQ(reply.substr(reply.size() - 6), bytes("\xE5\0\0\0\x01\0"));
    Search search = all();
    EXPECT_EQ(batch(*index_, search).availability, std::vector<std::uint32_t>{231});
}

TEST_P(FileIndexTest, AClientThatPublishedTwiceLeavesTwice) {
    index_->publish(list(file(1, "x"), file(1, "x")), kHigh, kPort);
    index_->publish(list(file(1, "x")), kOtherHigh, kPort);
    EXPECT_EQ(index_->source_total(), 3);
    index_->remove_client(kHigh);
    EXPECT_EQ(index_->source_total(), 1);
    index_->remove_client(kOtherHigh);
    EXPECT_EQ(index_->source_total(), 0);
    EXPECT_EQ(index_->file_total(), 0u);
    EXPECT_EQ(sources(1), "none");
    index_->remove_client(kOtherHigh);
    EXPECT_EQ(index_->source_total(), 0);
}

TEST_P(FileIndexTest, RecordsFromBeforeALoginLeaveWithAnyConnectionOfIdentifierZero) {
    index_->publish(list(file(1, "x")), ClientId(0), 1);
    index_->publish(list(file(2, "x"), file(1, "x")), ClientId(0), 2);
    index_->remove_client(ClientId(0));
    EXPECT_EQ(index_->source_total(), 0);
    EXPECT_EQ(index_->file_total(), 0u);
}

TEST_P(FileIndexTest, AFilteredRecordIsNotCounted) {
    index_->add_filter(Filter(search_of(word("spam"))));
    index_->add_filter(Filter(search_of(word("eggs"))));
    index_->publish(list(file(1, "SPAM"), file(2, "ham"), file(3, "ham and eggs")), kHigh, kPort);
    EXPECT_EQ(index_->source_total(), 1);
    EXPECT_EQ(sources(1), "none");
    EXPECT_NE(sources(2), "none");
}

TEST_P(FileIndexTest, TheTwoLowRulesDifferAtTheLimitItself) {
    index_->publish(list(file(1, "word")), kLow, kPort);
    EXPECT_EQ(count(*index_, search_of(word("word")), kHigh), 1u);
    EXPECT_EQ(count(*index_, search_of(word("word")), kLow), 0u);
    EXPECT_EQ(count(*index_, search_of(word("word")), ClientId(0)), 0u);
    EXPECT_EQ(count(*index_, all(), kLowLimit), 1u) << "a scan counts FFFFFF as high";
    EXPECT_EQ(count(*index_, search_of(word("word")), kLowLimit), GetParam() ? 0u : 1u)
        << "a keyword search counts it as low";
}

TEST_P(FileIndexTest, AnEmptySearchFindsNothing) {
    index_->publish(numbered(0, 10, "x"), kHigh, kPort);
    Search search;
    search.resume_position = 3;
    EXPECT_TRUE(batch(*index_, search).numbers.empty());
    EXPECT_EQ(search.resume_position, Search::kNothingToContinue);
}

TEST_P(FileIndexTest, ResumePositionsOfAnyValueAreSafe) {
    index_->publish(numbered(0, 10, "x"), kHigh, kPort);
    for (const std::int32_t position : {INT32_MIN, -1, 0, 2332, 2333, INT32_MAX})
        for (const std::int32_t offset : {INT32_MIN, -1, 0, 1, INT32_MAX})
            for (const std::int32_t limit : {INT32_MIN, 0, 1, INT32_MAX}) {
                Search scan = all();
                Search keyword = search_of(word("x"));
                for (Search* search : {&scan, &keyword}) {
                    search->resume_position = position;
                    search->resume_offset = offset;
                    EXPECT_LE(batch(*index_, *search, kHigh, limit).numbers.size(), 10u);
                }
            }
}

TEST(FileIndex, AScanStopsAtTheLimitAndGoesOnBehindIt) {
    FileIndex index;
    index.init(7);
    index.publish(numbered(0, 250, "matching"), kHigh, kPort);
    Search search = search_of(word("matching"));
    Batch found = batch(index, search);
    EXPECT_EQ(found.numbers.size(), 200u);
    EXPECT_EQ(found.numbers[0], 0u);
    EXPECT_EQ(found.numbers[1], 7u) << "bucket by bucket";
    EXPECT_GE(search.resume_position, 0);
    const Batch rest = batch(index, search);
    EXPECT_EQ(rest.numbers.size(), 50u);
    EXPECT_EQ(search.resume_position, Search::kNothingToContinue);
    found.numbers.insert(found.numbers.end(), rest.numbers.begin(), rest.numbers.end());
    std::sort(found.numbers.begin(), found.numbers.end());
    EXPECT_EQ(std::unique(found.numbers.begin(), found.numbers.end()), found.numbers.end());
}

TEST(FileIndex, AScanThatEndsExactlyAtTheLimitStillOffersMore) {
    FileIndex index;
    index.init(1);
    index.publish(numbered(0, 200, "x"), kHigh, kPort);
    Search search = all();
    EXPECT_EQ(batch(index, search).numbers.size(), 200u);
    EXPECT_EQ(search.resume_position, 0);
    EXPECT_EQ(search.resume_offset, 200);
    EXPECT_TRUE(batch(index, search).numbers.empty());
    EXPECT_EQ(search.resume_position, Search::kNothingToContinue);
    EXPECT_EQ(search.resume_offset, 0);
}

TEST(KeywordFileIndex, ABatchHasOneMoreThanTheLimitAndRemembersTheLast) {
    KeywordFileIndex index;
    index.init(7);
    index.publish(numbered(0, 250, "common"), kHigh, kPort);
    Search search = search_of(word("common"));
    const Batch found = batch(index, search);
    EXPECT_EQ(found.numbers.size(), 201u);
    EXPECT_EQ(found.numbers[200], 200u) << "in order of first publication";
    EXPECT_EQ(search.resume_position, 200);
    EXPECT_EQ(batch(index, search).numbers.size(), 49u);
    EXPECT_EQ(search.resume_position, Search::kNothingToContinue);
}

TEST(KeywordFileIndex, AWordIsFoundWholeOnly) {
    KeywordFileIndex index;
    index.init(7);
    index.publish(list(file(1, "Some_File-name.mp3"), file(2, "filename")), kHigh, kPort);
    EXPECT_EQ(count(index, search_of(word("file"))), 1u);
    EXPECT_EQ(count(index, search_of(word("filename"))), 1u);
    EXPECT_EQ(count(index, search_of(word("fil"))), 0u);
    EXPECT_EQ(count(index, search_of(word("some ame mp"))), 1u) << "the others are substrings";
    EXPECT_EQ(count(index, search_of(word("file-name"))), 0u) << "cut at blanks only";
    EXPECT_EQ(index.keyword_total(), 5u);
    index.remove_client(kHigh);
    EXPECT_EQ(index.keyword_total(), 0u);
}

TEST(KeywordFileIndex, ALaterPublishersNameAddsNoWord) {
    KeywordFileIndex index;
    index.init(7);
    index.publish(list(file(1, "old")), kHigh, kPort);
    index.publish(list(file(1, "new")), kOtherHigh, kPort);
    EXPECT_EQ(count(index, search_of(word("new"))), 0u);
    index.remove_client(kHigh);
    index.remove_client(kOtherHigh);
    index.publish(list(file(1, "new")), kHigh, kPort);
    EXPECT_EQ(count(index, search_of(word("new"))), 1u) << "a new entry is tokenised again";
}

// Most of the files leave, so that segments are packed and the frequent word's bitmaps stay.
TEST(KeywordFileIndex, OrderAndPositionsOutliveTheDeathOfMostFiles) {
    KeywordFileIndex index({.segment_rows = 8192, .sorted_scan = 0});
    index.init(3);
    const std::size_t allocated_before = ::mallinfo2().uordblks;
    constexpr std::uint32_t kFiles = 20000;
    for (std::uint32_t i = 0; i < kFiles; ++i)
        index.publish(list(file(i, i % 40 == 0 ? "common rare" : "common other")),
                      i % 20 < 9 ? kHigh : kOtherHigh, kPort);
    index.remove_client(kOtherHigh);

    std::vector<std::uint32_t> common;
    std::vector<std::uint32_t> rare;
    for (std::uint32_t i = 0; i < kFiles; ++i) {
        if (i % 20 < 9) common.push_back(i);
        if (i % 40 == 0) rare.push_back(i);
    }
    for (const ClientId asker : {kHigh, kLow}) {
        Search search = search_of(word("common"));
        std::vector<std::uint32_t> found;
        do {
            const Batch next = batch(index, search, asker);
            found.insert(found.end(), next.numbers.begin(), next.numbers.end());
        } while (search.resume_position >= 0);
        EXPECT_EQ(found, common);
        Search both = search_of(word("common rare"));
        EXPECT_EQ(batch(index, both, asker, 1000000).numbers, rare);
        EXPECT_EQ(
            count(index, search_of(combine(CombineOp::kOr, word("rare"), word("none"))), asker),
            rare.size());
    }
    index.remove_client(kHigh);
    EXPECT_EQ(index.keyword_total(), 0u);
    // Some of what is free the allocator counts as used.
    EXPECT_LT(::mallinfo2().uordblks, allocated_before + 256 * 1024);
}

}  // namespace
}  // namespace vorrim
