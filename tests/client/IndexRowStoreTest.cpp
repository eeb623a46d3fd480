// Rows, segments and signatures, against what was put in.
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <string>

#include "client/index/CandidatePlan.h"
#include "client/index/RowStore.h"
#include "tests/search/SearchFixture.h"

namespace vorrim {
namespace {

using namespace test;

TextSignature signature_of_text(const std::string& text) {
    TextSignature signature;
    signature.add(text);
    return signature;
}

// A record without tags, for rows whose signatures say all.
constexpr std::array<std::byte, RecordLayout::tags> kBytes{};
const RecordView kNoTexts(kBytes);

struct Kept {
    std::uint32_t handle;
    TextSignature signature;
    bool reachable;
};

// The smallest there is.
constexpr std::uint32_t kSegment = Segment::kStretchRows;

class StoreAndModel {
public:
    explicit StoreAndModel(std::uint32_t row_limit, std::uint32_t segment_rows = kSegment)
        : store(row_limit, segment_rows) {}

    RowStore store;
    std::map<std::uint32_t, Kept> model;
    std::mt19937 random{3};

    void append() {
        TextSignature signature;
        for (int bits = 0; bits < 20; ++bits)
            signature.set(random() % TextSignature::kColumns);
        const Kept kept{static_cast<std::uint32_t>(random()), signature, random() % 3 == 0};
        const std::uint32_t row =
            store.append(kept.handle, kept.signature, kept.reachable, kNoTexts);
        ASSERT_TRUE(model.empty() || row > model.rbegin()->first);
        model.emplace(row, kept);
    }
    void remove(std::uint32_t row) {
        store.remove(row);
        model.erase(row);
    }
    void toggle(std::uint32_t row) {
        model.at(row).reachable = !model.at(row).reachable;
        store.set_reachable(row, model.at(row).reachable);
    }
    void compare() {
        ASSERT_EQ(store.size(), model.size());
        auto expected = model.begin();
        for (std::size_t ordinal = 0; ordinal < store.segments().size(); ++ordinal) {
            const Segment& segment = *store.segments()[ordinal];
            ASSERT_EQ(segment.ordinal, ordinal);
            segment.for_each_live([&](std::uint32_t slot) {
                ASSERT_NE(expected, model.end());
                const auto& [row, kept] = *expected++;
                ASSERT_EQ(segment.row_of(slot), row);
                ASSERT_EQ(&store.segment_of(row), &segment);
                ASSERT_EQ(segment.slot_of(row), slot);
                ASSERT_EQ(segment.handle_of(slot), kept.handle);
                ASSERT_EQ(segment.reachable(slot), kept.reachable);
                ASSERT_EQ(segment.signature_of(slot).words(), kept.signature.words());
            });
        }
        ASSERT_EQ(expected, model.end());
    }
};

TEST(IndexRowStore, KeepsWhatItWasGivenWhileSegmentsArePackedAndFreed) {
    StoreAndModel both(0xFFFFF000);
    // Oldest first, everywhere, all but a few, and from the middle: each leaves other segments.
    for (int round = 0; round < 5; ++round) {
        for (int i = 0; i < 14000; ++i)
            both.append();
        std::vector<std::uint32_t> rows;
        for (const auto& [row, kept] : both.model)
            rows.push_back(row);
        if (round % 2 == 1) std::shuffle(rows.begin(), rows.end(), both.random);
        const std::size_t leaving = rows.size() * (round == 3 ? 99 : 70) / 100;
        for (std::size_t i = 0; i < leaving; ++i) {
            if (i % 7 == 0) both.toggle(rows[i + (rows.size() - leaving)]);
            both.remove(rows[i]);
        }
        ASSERT_NO_FATAL_FAILURE(both.compare());
    }
    while (!both.model.empty())
        both.remove(both.model.begin()->first);
    ASSERT_NO_FATAL_FAILURE(both.compare());
    both.append();
    ASSERT_NO_FATAL_FAILURE(both.compare());
}

TEST(IndexRowStore, StartsAgainAfterTheLastSegmentDied) {
    for (const std::uint32_t rows : {2 * kSegment, kSegment + 1}) {
        StoreAndModel both(3 * kSegment);
        for (std::uint32_t i = 0; i < rows; ++i)
            both.append();
        both.remove(rows - 1);
        while (!both.model.empty())
            both.remove(both.model.begin()->first);
        EXPECT_EQ(both.store.heap_bytes(), 0u);
        both.append();
        EXPECT_EQ(both.model.begin()->first, 2 * kSegment);
        ASSERT_NO_FATAL_FAILURE(both.compare());
        both.remove(2 * kSegment);
        EXPECT_TRUE(both.store.exhausted());
    }
}

TEST(IndexRowStore, MemoryFollowsTheLiveRows) {
    StoreAndModel both(0xFFFFF000);
    for (int i = 0; i < 40000; ++i)
        both.append();
    const std::size_t full = both.store.heap_bytes() / both.model.size();
    // Random lifetimes at a constant number of rows, then one survivor in a thousand.
    for (int i = 0; i < 100000; ++i) {
        both.append();
        both.remove(std::next(both.model.begin(), static_cast<long>(both.random() % 64))->first);
    }
    EXPECT_LT(both.store.heap_bytes() / both.model.size(), full * 3);
    std::size_t index = 0;
    std::vector<std::uint32_t> rows;
    for (const auto& [row, kept] : both.model)
        rows.push_back(row);
    for (const std::uint32_t row : rows)
        if (index++ % 1000 != 0) both.remove(row);
    EXPECT_LE(both.store.segments().size(), 3u);
    ASSERT_NO_FATAL_FAILURE(both.compare());
}

TEST(IndexRowStore, NewNumbersKeepTheOrder) {
    constexpr std::uint32_t kLimit = 10000;
    StoreAndModel both(kLimit);
    for (std::uint32_t i = 0; i < kLimit; ++i) {
        both.append();
        if (i % 3 != 0) both.remove(std::prev(both.model.end())->first);
    }
    ASSERT_TRUE(both.store.exhausted());
    EXPECT_THROW(both.store.append(0, {}, false, kNoTexts), std::bad_alloc);

    const RowStore::NewNumbers new_number(both.store);
    std::map<std::uint32_t, Kept> renumbered;
    for (const auto& [row, kept] : both.model)
        renumbered.emplace(new_number(row), kept);
    EXPECT_EQ(renumbered.begin()->first, 0u);
    EXPECT_EQ(std::prev(renumbered.end())->first, both.model.size() - 1);
    both.store.renumber([](std::uint32_t) { return kNoTexts; },
                        [&](std::uint32_t handle, std::uint32_t row) {
                            EXPECT_EQ(renumbered.at(row).handle, handle);
                        });
    both.model = std::move(renumbered);
    ASSERT_NO_FATAL_FAILURE(both.compare());
    EXPECT_FALSE(both.store.exhausted());
    both.append();
}

// Which of the texts, one a row, a plan lets through; both ways of asking agree.
std::vector<std::string> admitted(std::unique_ptr<SearchNode> root,
                                  const std::vector<std::string>& texts) {
    RowStore store(1000, kSegment);
    for (const std::string& text : texts)
        store.append(0, signature_of_text(text), false, kNoTexts);
    CandidatePlan plan(*root);
    plan.order_by(store.weights());
    const Segment& segment = *store.segments().front();
    Segment::Stretch bits = segment.live(0);
    plan.narrow(segment, 0, bits);
    std::vector<std::string> passed;
    for (std::uint32_t slot = 0; slot < texts.size(); ++slot) {
        std::uint32_t one[] = {slot};
        EXPECT_EQ(plan.narrow(segment, one) == 1, bits[0].test(slot));
        if (bits[0].test(slot)) passed.push_back(texts[slot]);
    }
    return passed;
}

const std::vector<std::string> kTexts = {"Blue Sky.mp3", "red sea", "blue sea", "green", ""};

TEST(IndexCandidatePlan, AsksForWhatMustBeThere) {
    using Texts = std::vector<std::string>;
    const auto is = [](std::int32_t op, const char* left, const char* right) {
        return combine(op, word(left), word(right));
    };
    EXPECT_EQ(admitted(word("blue"), kTexts), (Texts{"Blue Sky.mp3", "blue sea"}));
    EXPECT_EQ(admitted(word("lue s"), kTexts), (Texts{"Blue Sky.mp3", "blue sea"}));
    EXPECT_EQ(admitted(word("bl"), kTexts), kTexts);
    EXPECT_EQ(admitted(word(""), kTexts), kTexts);
    EXPECT_EQ(admitted(std::make_unique<SN_All>(), kTexts), kTexts);
    EXPECT_EQ(admitted(size_above(3), kTexts), kTexts);
    EXPECT_EQ(admitted(std::make_unique<SN_StringTagCompare>("green", "x"), kTexts),
              Texts{"green"});
    EXPECT_EQ(admitted(is(CombineOp::kAnd, "blue", "sea"), kTexts), Texts{"blue sea"});
    EXPECT_EQ(admitted(is(CombineOp::kOr, "red", "green"), kTexts), (Texts{"red sea", "green"}));
    EXPECT_EQ(admitted(is(CombineOp::kOr, "red", "gr"), kTexts), kTexts);
    EXPECT_EQ(admitted(is(CombineOp::kExclusiveOr, "red", "green"), kTexts),
              (Texts{"red sea", "green"}));
    EXPECT_EQ(admitted(is(CombineOp::kAndNot, "sea", "blue"), kTexts),
              (Texts{"red sea", "blue sea"}));
    EXPECT_EQ(admitted(is(CombineOp::kNotAnd, "sea", "green"), kTexts), Texts{"green"});
    EXPECT_EQ(admitted(combine(CombineOp::kAnd, word("sea"), is(CombineOp::kOr, "blue", "green")),
                       kTexts),
              Texts{"blue sea"});
}

// Thousands of alternatives or levels must neither recurse without bound nor cost each segment.
TEST(IndexCandidatePlan, GivesUpOnHugeTrees) {
    auto wide = word("green");
    auto deep = word("green");
    auto nested = word("green");
    for (int i = 0; i < 20000; ++i) {
        wide = combine(CombineOp::kOr, std::move(wide), word("word" + std::to_string(i)));
        deep = combine(CombineOp::kAnd, word("green"), std::move(deep));
        nested = combine(i % 2 == 0 ? CombineOp::kOr : CombineOp::kAnd, word("green"),
                         std::move(nested));
    }
    EXPECT_EQ(admitted(std::move(wide), kTexts), kTexts);
    EXPECT_EQ(admitted(std::move(deep), kTexts), std::vector<std::string>{"green"});
    EXPECT_EQ(admitted(std::move(nested), kTexts), std::vector<std::string>{"green"});
}

}  // namespace
}  // namespace vorrim
