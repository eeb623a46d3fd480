// What a search dismisses unseen. That it dismisses no match is the index model's matter.
#include <gtest/gtest.h>
#include <string>

#include "client/index/CandidatePlan.h"
#include "client/index/RowStore.h"
#include "tests/search/SearchFixture.h"

namespace vorrim {
namespace {

using namespace test;

// Which of the texts, one a row, a plan lets through; both ways of asking agree.
std::vector<std::string> admitted(std::unique_ptr<SearchNode> root,
                                  const std::vector<std::string>& texts) {
    constexpr std::array<std::byte, RecordLayout::tags> kBytes{};
    RowStore store(1000, Segment::kStretchRows);
    for (const std::string& text : texts) {
        TextSignature signature;
        signature.add(text);
        store.append(0, signature, false, RecordView(kBytes));
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
