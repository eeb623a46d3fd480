// What the random operations of IndexModelTest.cpp do not reach.
#include <gtest/gtest.h>
#include <malloc.h>
#include <string>
#include <vector>

#include "client/FileIndex.h"
#include "client/KeywordFileIndex.h"
#include "tests/search/SearchFixture.h"

namespace vorrim {
namespace {

using namespace test;

constexpr ClientId kLow(5);
constexpr ClientId kHigh(0x0100007F);
constexpr ClientId kOtherHigh(0x0200007F);
constexpr std::uint16_t kPort = 4662;

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

// The numbers of the files that a batch holds, in order.
std::vector<std::uint32_t> batch(const FileIndex& index, Search& search, ClientId asker,
                                 std::int32_t limit) {
    std::vector<std::uint32_t> numbers;
    SearchBatch batch = index.begin_batch(search, limit, asker);
    while (!index.continue_batch(
        batch, [&](RecordView record) { numbers.push_back(record.hash().first_u32()); })) {
    }
    return numbers;
}

void expect_safe_resumption(FileIndex& index) {
    index.init(2333);
    for (std::uint32_t i = 0; i < 10; ++i) {
        std::vector<FrozenRecord> files;
        files.push_back(file(i, "x"));
        index.publish(std::move(files), kHigh, kPort);
    }
    for (const std::int32_t position : {INT32_MIN, -1, 0, 2332, 2333, INT32_MAX})
        for (const std::int32_t offset : {INT32_MIN, -1, 0, 1, INT32_MAX})
            for (const std::int32_t limit : {INT32_MIN, 0, 1, INT32_MAX}) {
                Search scan = search_of(std::make_unique<SN_All>());
                Search keyword = search_of(word("x"));
                for (Search* search : {&scan, &keyword}) {
                    search->resume_position = position;
                    search->resume_offset = offset;
                    EXPECT_LE(batch(index, *search, kHigh, limit).size(), 10u);
                }
            }
}

TEST(FileIndex, ResumePositionsOfAnyValueAreSafe) {
    FileIndex plain;
    expect_safe_resumption(plain);
    KeywordFileIndex by_keyword;
    expect_safe_resumption(by_keyword);
}

// Most of the files leave, so that segments are packed and the frequent word's bitmaps stay.
TEST(KeywordFileIndex, OrderAndPositionsOutliveTheDeathOfMostFiles) {
    KeywordFileIndex index({.segment_rows = 8192, .sorted_scan = 0});
    index.init(3);
    const std::size_t allocated_before = ::mallinfo2().uordblks;
    constexpr std::uint32_t kFiles = 20000;
    for (std::uint32_t i = 0; i < kFiles; ++i) {
        std::vector<FrozenRecord> files;
        files.push_back(file(i, i % 40 == 0 ? "common rare" : "common other"));
        index.publish(std::move(files), i % 20 < 9 ? kHigh : kOtherHigh, kPort);
    }
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
            const auto next = batch(index, search, asker, 200);
            found.insert(found.end(), next.begin(), next.end());
        } while (search.resume_position >= 0);
        EXPECT_EQ(found, common);
        Search both = search_of(word("common rare"));
        EXPECT_EQ(batch(index, both, asker, 1000000), rare);
        Search either = search_of(combine(CombineOp::kOr, word("rare"), word("none")));
        EXPECT_EQ(batch(index, either, asker, 1000000).size(), rare.size());
    }
    index.remove_client(kHigh);
    EXPECT_EQ(index.keyword_total(), 0u);
    // Some of what is free the allocator counts as used.
    EXPECT_LT(::mallinfo2().uordblks, allocated_before + 256 * 1024);
}

}  // namespace
}  // namespace vorrim
