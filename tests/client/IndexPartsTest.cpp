// The parts on which the index stands: its hashes, lists of rows, what a search dismisses unseen.
#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "client/index/CandidatePlan.h"
#include "client/index/HashToEntry.h"
#include "client/index/RowList.h"
#include "client/index/RowStore.h"
#include "client/index/keyword_hash.h"
#include "tests/client/Files.h"
#include "tests/search/SearchFixture.h"

namespace vorrim {
namespace {

using namespace test;

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
    EXPECT_EQ(keyword_hash("the"), 0xF9B5DBC0u);  // differ with unsigned shifts
    EXPECT_EQ(keyword_hash("best"), 0x467256DDu);
    EXPECT_EQ(keyword_hash(""), 1u);                        // 0 names no word
    EXPECT_NE(keyword_hash("\xC9"), keyword_hash("\xE9"));  // only A to Z are folded
}

using Rows = std::vector<std::uint32_t>;

// Takes the runs of a visit apart again.
struct Collector {
    Rows found{};
    std::size_t windows = 0;

    bool rows(std::span<const std::uint32_t> run) {
        found.insert(found.end(), run.begin(), run.end());
        return true;
    }
    bool window(std::uint32_t base, RowBlocks::Window bits, std::uint32_t first) {
        ++windows;
        EXPECT_EQ(base % RowBlocks::kWindowRows, 0u);
        for (std::uint32_t i = first - base; i < RowBlocks::kWindowRows; ++i)
            if ((bits[i / 64] >> (i % 64) & 1) != 0) found.push_back(base + i);
        return true;
    }
};

Collector visited(const RowList& list, std::uint32_t from = 0) {
    Collector collector;
    EXPECT_TRUE(list.visit(from, collector));
    return collector;
}

void expect_same(const RowList& list, const Rows& rows, std::mt19937& random) {
    ASSERT_EQ(list.size(), rows.size());
    ASSERT_EQ(visited(list).found, rows);
    Rows unpacked;
    list.for_each([&](std::uint32_t row) { unpacked.push_back(row); });
    ASSERT_EQ(unpacked, rows);
    for (int i = 0; i < 4 && !rows.empty(); ++i) {
        const auto index = static_cast<std::uint32_t>(random() % rows.size());
        ASSERT_EQ(list.rank(rows[index]), index);
        ASSERT_EQ(visited(list, index).found, Rows(rows.begin() + index, rows.end()));
        const std::uint32_t other = rows[index] + static_cast<std::uint32_t>(random() % 5000);
        ASSERT_EQ(list.rank(other),
                  std::lower_bound(rows.begin(), rows.end(), other) - rows.begin());
    }
    ASSERT_TRUE(visited(list, list.size()).found.empty());
    ASSERT_TRUE(visited(list, 0xFFFFFFFF).found.empty());
}

// One phase: so many appends and erasures per hundred, rows so far apart.
struct Phase {
    int operations;
    std::uint32_t appends_percent;
    std::uint32_t gap;
};

TEST(IndexRowList, KeepsTheRowsOfAVectorThroughAllForms) {
    std::mt19937 random(7);
    RowList list(42);
    Rows rows;
    std::uint32_t next = 0;
    std::size_t windows = 0;
    for (const Phase& phase :
         {Phase{60, 55, 1}, Phase{3000, 90, 3}, Phase{9000, 80, 400}, Phase{30000, 95, 2},
          Phase{20000, 10, 1}, Phase{9000, 70, 20}, Phase{30000, 2, 1}, Phase{9000, 60, 15}}) {
        for (int i = 0; i < phase.operations; ++i) {
            if (rows.empty() || random() % 100 < phase.appends_percent) {
                next += 1 + static_cast<std::uint32_t>(random() % phase.gap);
                list.append(next);
                rows.push_back(next);
            } else {
                const auto at = rows.begin() + static_cast<std::ptrdiff_t>(random() % rows.size());
                list.erase(*at);
                rows.erase(at);
            }
            if (i % 997 == 0 || rows.size() < 4 || (rows.size() + 2) % 1024 < 4) {
                ASSERT_NO_FATAL_FAILURE(expect_same(list, rows, random));
            }
        }
        windows += visited(list).windows;
        ASSERT_NO_FATAL_FAILURE(expect_same(list, rows, random));
    }
    EXPECT_GT(windows, 0u) << "no frequent word was tested";
    EXPECT_EQ(list.key(), 42u);

    RowList moved = std::move(list);
    ASSERT_NO_FATAL_FAILURE(expect_same(moved, rows, random));
    moved = moved.renumbered([&](std::uint32_t row) {
        return static_cast<std::uint32_t>(std::lower_bound(rows.begin(), rows.end(), row) -
                                          rows.begin());
    });
    for (std::uint32_t i = 0; i < rows.size(); ++i)
        rows[i] = i;
    ASSERT_NO_FATAL_FAILURE(expect_same(moved, rows, random));
}

// Segments grow and are packed, with one another as well, while rows come, go and change; now and
// then all of them go at once, or nearly all.
TEST(IndexRowStore, KeepsWhatItWasToldWhileSegmentsArePacked) {
    constexpr std::uint32_t kSegment = Segment::kStretchRows;
    constexpr std::uint32_t kRows = 15 * kSegment;
    const auto marks_of = [](std::uint32_t number) {
        TextMarks marks;
        marks.signature.add("file " + std::to_string(number));
        return marks;
    };
    const std::vector<FrozenRecord> records =
        files(0, kRows, [](std::uint32_t) { return std::string(); });
    const auto number_of = [](RecordPlace record) { return record.view().hash().first_u32(); };
    std::mt19937 random(7);
    RowStore store(2 * kRows, kSegment);
    using Known = std::map<std::uint32_t, std::pair<std::uint32_t, bool>>;
    Known known;  // number of each row, and whether somebody reachable has it
    const auto expect_same = [&] {
        Known met;
        store.for_each_live([&](const Segment& segment, std::uint32_t slot) {
            const std::uint32_t number = number_of(segment.record_of(slot));
            met[segment.row_of(slot)] = {number, segment.reachable(slot)};
            TextSignature signature;
            for (std::size_t column = 0; column < TextSignature::kColumns; ++column)
                if (segment.in_column(column, slot)) signature.set(column);
            ASSERT_EQ(signature.words(), marks_of(number).signature.words());
        });
        ASSERT_EQ(met, known);
    };
    const auto remove = [&](Known::iterator row) {
        store.remove(row->first);
        return known.erase(row);
    };
    for (std::uint32_t number = 0; number < kRows; ++number) {
        const bool reachable = random() % 2 == 0;
        const std::uint32_t row =
            store.append(records[number].place(), marks_of(number), reachable);
        known[row] = {number, reachable};
        const auto any = [&] {
            return known.lower_bound(static_cast<std::uint32_t>(random()) % (row + 1));
        };
        if (random() % 2 == 0) remove(any());
        if (const auto other = any(); other != known.end())
            store.set_reachable(other->first, other->second.second = !other->second.second);
        if (number % (3 * kSegment) == 5 * kSegment / 2) {
            const bool all = number < 3 * kSegment;
            for (auto at = known.begin(); at != known.end();)
                at = all || random() % 20 > 0 ? remove(at) : std::next(at);
            ASSERT_NO_FATAL_FAILURE(expect_same());
        }
        if (number % 1000 == 0) {
            ASSERT_NO_FATAL_FAILURE(expect_same());
        }
    }
}

// Whatever stands in a record is found in its part, however long its texts are; what stands in none
// is hardly ever.
TEST(IndexGramFilter, KnowsEveryRunOfARecord) {
    std::mt19937 random(11);
    const auto letters = [&](std::size_t length, std::uint32_t kinds) {
        std::string text(length, ' ');
        for (char& letter : text)
            letter = "abcdefghijklmnopqrstuvwxyz0123456789 -."[random() % kinds];
        return text;
    };
    constexpr std::uint32_t kOneWord = 36;
    constexpr std::uint32_t kWords = 39;
    const auto filter = std::make_unique<GramFilter>();
    const GramFilter::Places places(4096);
    const auto parts_with = [&](const std::string& needle) {
        GramFilter::Parts parts = GramFilter::kAllParts;
        for_each_gram_run(needle, [&](GramRun run, std::size_t) {
            places.for_each(run, [&](std::uint32_t place) {
                parts &= filter->at(place);
                return true;
            });
        });
        return parts;
    };
    // With 60 letters the runs are 113, with 70 they are 133: more than are kept.
    const std::vector<std::size_t> lengths = {0, 3, 4, 5, 60, 67, 68, 70, 3000};
    for (std::uint32_t part = 0; part < 2 * lengths.size(); ++part) {
        const std::string text = letters(lengths[part / 2], part % 2 == 0 ? kOneWord : kWords);
        const FrozenRecord record = file(part, text);
        filter->add(part, record.view(), GramRuns(record.view()), places);
        for (std::size_t at = 0; at + kShortRun <= text.size(); ++at) {
            const std::string needle = text.substr(at, kShortRun + random() % 9);
            EXPECT_TRUE(parts_with(needle) >> part & 1) << needle;
        }
    }
    int met = 0;
    for (int i = 0; i < 1000; ++i)
        met += parts_with(letters(8, kOneWord)) != 0 ? 1 : 0;
    EXPECT_LE(met, 5);
}

// Which of the texts, one a row, a plan lets through; both ways of asking agree.
std::vector<std::string> admitted(std::unique_ptr<SearchNode> root,
                                  const std::vector<std::string>& texts) {
    const FrozenRecord record = file(0, "");
    RowStore store(1000, Segment::kStretchRows);
    for (const std::string& text : texts) {
        TextMarks marks;
        marks.signature.add(text);
        store.append(record.place(), marks, false);
    }
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
    const auto expect = [](std::unique_ptr<SearchNode> root, const Texts& passed) {
        const std::string tree = printed(*root);
        EXPECT_EQ(admitted(std::move(root), kTexts), passed) << tree;
    };
    expect(word("lue s"), {"Blue Sky.mp3", "blue sea"});
    expect(word("bl"), kTexts);
    expect(size_above(3), kTexts);
    expect(std::make_unique<SN_StringTagCompare>("green", "x"), {"green"});
    expect(is(CombineOp::kAnd, "blue", "sea"), {"blue sea"});
    expect(is(CombineOp::kOr, "red", "green"), {"red sea", "green"});
    expect(is(CombineOp::kOr, "red", "gr"), kTexts);
    expect(is(CombineOp::kExclusiveOr, "red", "green"), {"red sea", "green"});
    expect(is(CombineOp::kAndNot, "sea", "blue"), {"red sea", "blue sea"});
    expect(is(CombineOp::kNotAnd, "sea", "green"), {"green"});
    expect(combine(CombineOp::kAnd, word("sea"), is(CombineOp::kOr, "blue", "green")),
           {"blue sea"});
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
