#include <array>
#include <gtest/gtest.h>
#include <random>

#include "search/UnknownOperations.h"
#include "search/WideSearch.h"
#include "tests/base/RecordingOutput.h"
#include "tests/search/SearchFixture.h"

namespace vorrim {
namespace {

using test::combine;
using test::Shown;
using test::word;

// Trees and records of few letters and names, so that much of one is in the other.
class Draw {
public:
    explicit Draw(std::uint64_t seed) : random_(seed) {}

    std::size_t below(std::size_t count) {
        return std::uniform_int_distribution<std::size_t>(0, count - 1)(random_);
    }
    std::string text(std::size_t longest) {
        constexpr std::string_view kLetters = "aabbAc\xE4\xC4 ";
        std::string text(below(longest + 1), 'a');
        for (char& c : text)
            c = kLetters[below(kLetters.size())];
        return text;
    }
    std::string name() {
        constexpr std::array<std::string_view, 6> kNames = {"", "n", "x", "\x02", "xy", "X"};
        return std::string(kNames[below(kNames.size())]);
    }
    std::int32_t number() { return static_cast<std::int32_t>(below(5)) - 2; }

    std::unique_ptr<SearchNode> tree(int leaves) {
        if (leaves > 1) {
            const int left = 1 + static_cast<int>(below(static_cast<std::size_t>(leaves - 1)));
            // One in eight is of a code that nobody knows.
            return combine(below(8) == 0 ? 9 : static_cast<std::int32_t>(below(5)), tree(left),
                           tree(leaves - left));
        }
        switch (below(10)) {
            case 0:
                return std::make_unique<SN_All>();
            case 1:
                return nullptr;
            case 2:
            case 3:
            case 4:
                return std::make_unique<SN_IntTagCompare>(
                    number(), static_cast<std::int32_t>(below(7)), name());
            case 5:
            case 6:
                return std::make_unique<SN_StringTagCompare>(text(3), name());
            default:
                return word(text(4));
        }
    }
    Shown record() {
        std::vector<wire::Tag> tags(below(8));
        for (wire::Tag& tag : tags)
            tag = below(2) == 0 ? wire::text_tag(name(), text(20))
                                : wire::int_tag(name(), static_cast<std::uint32_t>(number()));
        return Shown(tags);
    }

private:
    std::mt19937_64 random_;
};

TEST(WideSearch, MatchesAndReportsWhatItsTreeDoes) {
    const std::uint64_t seed = std::random_device{}();
    SCOPED_TRACE(seed);
    Draw draw(seed);
    RecordingOutput output;
    int matched = 0;
    constexpr int kTrees = 2000;
    constexpr int kRecords = 10;
    for (int i = 0; i < kTrees; ++i) {
        const auto tree = combine(static_cast<std::int32_t>(draw.below(5)),
                                  draw.tree(1 + static_cast<int>(draw.below(40))),
                                  draw.tree(1 + static_cast<int>(draw.below(40))));
        WideSearch wide(*tree);
        for (int j = 0; j < kRecords; ++j) {
            const Shown record = draw.record();
            const bool match = tree->evaluate(record);
            const auto lines = output.take();
            ASSERT_EQ(wide.matches(record), match) << test::printed(*tree);
            ASSERT_EQ(output.take(), lines) << test::printed(*tree);
            matched += match ? 1 : 0;
        }
    }
    EXPECT_GT(matched, kTrees * kRecords / 10);
    EXPECT_LT(matched, kTrees * kRecords * 9 / 10);
}

}  // namespace
}  // namespace vorrim
