// The small parts on which the index stands.
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <string>

#include "client/index/HashToEntry.h"
#include "client/index/OwnerIndex.h"
#include "client/index/SourceList.h"
#include "client/index/SparseBits.h"
#include "client/index/keyword_hash.h"
#include "tests/client/IndexModel.h"

namespace vorrim {
namespace {

using test::little_endian;

TEST(IndexKeyedHash, IsSipHash13) {
    // Computed by a second implementation, which gives the published values with 2 and 4 rounds:
    // the key 00 01 ... 0F over the message 00 01 ... 0F.
    const KeyedHash keyed(0x0706050403020100, 0x0F0E0D0C0B0A0908);
    FileHash message;
    for (std::size_t i = 0; i < message.bytes.size(); ++i)
        message.bytes[i] = std::byte(i);
    EXPECT_EQ(keyed.of(message), 0xCC4FDD1A7D908B66u);
}

TEST(IndexKeywordHash, HasTheValuesThatEveryServerOfTheNetworkComputes) {
    EXPECT_EQ(keyword_hash("a"), 0xCA2E9442u);
    EXPECT_EQ(keyword_hash("abc"), 0xED131F5Bu);
    EXPECT_EQ(keyword_hash("ABC"), 0xED131F5Bu);
    EXPECT_EQ(keyword_hash("the"), 0xF9B5DBC0u);            // differs with unsigned shifts
    EXPECT_EQ(keyword_hash(""), 1u);                        // 0 names no word
    EXPECT_NE(keyword_hash("\xC9"), keyword_hash("\xE9"));  // only A to Z are folded
}

TEST(IndexSparseBits, FindsTheNextNumberLikeASet) {
    for (const std::uint32_t bound : {1u, 7u, 64u, 65u, 4096u, 4097u, 262145u, 2000000000u}) {
        SparseBits bits(bound);
        std::set<std::uint32_t> model;
        std::mt19937_64 random(bound);
        const auto any = [&] { return static_cast<std::uint32_t>(random() % bound); };
        for (int i = 0; i < 300; ++i) {
            const std::uint32_t number = i == 0 ? 0 : i == 1 ? bound - 1 : any();
            if (random() % 3 != 0) {
                bits.set(number);
                model.insert(number);
            } else {
                bits.clear(number);
                model.erase(number);
            }
            for (const std::uint32_t from : {0u, number, any(), bound - 1, bound}) {
                const auto next = model.lower_bound(from);
                ASSERT_EQ(bits.next(from), next == model.end() ? SparseBits::kNone : *next)
                    << "from " << from << " below " << bound;
            }
        }
    }
}

TEST(IndexSourceList, KeepsOrderAndWireForm) {
    std::mt19937 random(5);
    SourceStore store;
    SourceList list;
    std::vector<std::pair<std::uint32_t, std::uint16_t>> model;
    for (int i = 0; i < 4000; ++i) {
        const auto id = static_cast<std::uint32_t>(random() % 9);
        const bool grows = i / 500 % 2 == 0;
        if (random() % 10 < (grows ? 8u : 3u)) {
            const auto port = static_cast<std::uint16_t>(random());
            list.append(store, ClientId(id), port);
            model.emplace_back(id, port);
        } else {
            const auto there = std::count_if(model.begin(), model.end(),
                                             [&](const auto& s) { return s.first == id; });
            auto leaving = there == 0 ? 0 : 1 + static_cast<long>(random()) % there;
            list.remove(store, ClientId(id), static_cast<std::uint32_t>(leaving));
            std::erase_if(model, [&](const auto& s) { return s.first == id && leaving-- > 0; });
        }
        std::string expected;
        for (const auto& [source, port] : model)
            expected += little_endian(source, 4) + little_endian(port, 2);
        std::string wire;
        for (const auto bytes : {list.first(), list.further(store)})
            wire.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        ASSERT_EQ(wire, expected);
        ASSERT_EQ(list.size(), model.size());
    }
    list.clear(store);
    EXPECT_EQ(list.size(), 0u);
}

// All lists grow together, which leaves the pieces that they outgrow to nobody else.
TEST(IndexSourceList, AFurtherSourceCostsItsSixBytes) {
    SourceStore store;
    std::vector<SourceList> lists(30000);
    for (int round = 0; round < 3; ++round) {
        for (std::uint32_t id = 0; id < 5; ++id)
            for (SourceList& list : lists)
                list.append(store, ClientId(id), 4662);
        const std::size_t further = lists.size() * 4;
        EXPECT_LT(store.heap_bytes(), further * kSourceSize * 11 / 10) << "round " << round;
        for (std::size_t i = lists.size(); i-- > lists.size() / 10;)
            lists[i].clear(store);
        EXPECT_LT(store.heap_bytes(), further * kSourceSize / 2) << "round " << round;
        for (std::size_t i = 0; i < lists.size() / 10; ++i)
            lists[i].clear(store);
        EXPECT_EQ(store.heap_bytes(), 0u) << "round " << round;
    }
}

TEST(IndexOwnerIndex, GivesBackEveryHandleOnce) {
    std::mt19937 random(9);
    OwnerIndex owners;
    std::map<std::uint32_t, std::multiset<std::uint32_t>> model;
    for (int i = 0; i < 3000; ++i) {
        const ClientId client(static_cast<std::uint32_t>(random() % 40) * 0x01010101);
        if (random() % 8 != 0) {
            std::vector<std::uint32_t> handles(random() % 30);
            for (std::uint32_t& handle : handles)
                handle = static_cast<std::uint32_t>(random() % 2 ? random() : random() % 100);
            model[client.value()].insert(handles.begin(), handles.end());
            owners.add(client, handles);
        } else {
            const auto handles = owners.take(client).sorted();
            const auto& expected = model[client.value()];
            ASSERT_EQ(handles, std::vector(expected.begin(), expected.end()));
            model.erase(client.value());
        }
    }
    for (const auto& [client, expected] : model)
        ASSERT_EQ(owners.take(ClientId(client)).sorted(),
                  std::vector(expected.begin(), expected.end()));
    EXPECT_EQ(owners.heap_bytes(), 0u);
}

}  // namespace
}  // namespace vorrim
