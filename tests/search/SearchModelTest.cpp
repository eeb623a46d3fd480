// Random expressions on random records, against a model that says the rules in the plainest way:
// recursion over values, nothing shared with the code under test.
#include <algorithm>
#include <climits>
#include <cstdlib>
#include <gtest/gtest.h>
#include <iostream>
#include <memory>
#include <optional>
#include <random>

#include "search/required_sides.h"
#include "tests/search/SearchFixture.h"

namespace vorrim {
namespace {

struct ModelTag {
    int type;
    std::string name;
    std::string text;
    std::int32_t number;
};
using ModelRecord = std::vector<ModelTag>;
using Lines = std::vector<std::string>;

std::string folded(std::string text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return text;
}

std::string counted(const std::string& text) {
    return std::string{static_cast<char>(text.size() & 0xFF), static_cast<char>(text.size() >> 8)} +
           text;
}

struct Model {
    int kind;
    int op = 0;
    std::int32_t number = 0;
    std::string text;
    std::string name;
    std::vector<Model> children;

    bool evaluate(const ModelRecord& record, Lines& lines) const {
        switch (kind) {
            case 0:
                return combine(record, lines);
            case 1:
            case 2:
                return std::any_of(record.begin(), record.end(), [&](const ModelTag& tag) {
                    const bool name_fits = kind == 1 || (tag.name != "n" && tag.name == name);
                    return tag.type == 2 && name_fits &&
                           folded(tag.text).find(text) != std::string::npos;
                });
            case 3:
                return std::any_of(record.begin(), record.end(), [&](const ModelTag& tag) {
                    return tag.type == 3 && tag.name != "n" && tag.name == name &&
                           compare(tag.number, lines);
                });
            default:
                return true;
        }
    }

    bool combine(const ModelRecord& record, Lines& lines) const {
        const auto left = [&] { return children[0].evaluate(record, lines); };
        const auto right = [&] { return children[1].evaluate(record, lines); };
        switch (op) {
            case 0:
                return left() && right();
            case 1:
                return left() || right();
            case 2:
                return left() && !right();
            case 3: {
                const bool left_value = left();
                return left_value != right();
            }
            case 4:
                return !left() && right();
            default:
                lines.push_back(test::kUnknownOperator);
                return false;
        }
    }

    bool compare(std::int32_t value, Lines& lines) const {
        switch (op) {
            case 0:
                return value == number;
            case 1:
                return value > number;
            case 2:
                return value < number;
            case 3:
                return value >= number;
            case 4:
                return value <= number;
            case 5:
                return value != number;
            default:
                lines.push_back(test::kUnknownCompare);
                return false;
        }
    }

    std::string wire() const {
        std::string bytes(1, static_cast<char>(kind));
        if (kind == 0)
            return bytes + static_cast<char>(op) + children[0].wire() + children[1].wire();
        if (kind == 1) return bytes + counted(text);
        if (kind == 2) return bytes + counted(text) + counted(name);
        if (kind != 3) return bytes;
        for (int i = 0; i < 4; ++i)
            bytes += static_cast<char>(static_cast<std::uint32_t>(number) >> (8 * i) & 0xFFU);
        return bytes + static_cast<char>(op) + counted(name);
    }

    std::string print() const {
        static const char* const kCombine[] = {" & ", " | ", " ! ", " x "};
        static const char* const kCompare[] = {"=", ">", "<", ">=", "<=", "!="};
        if (kind == 0)
            return " ( " + children[0].print() + (op < 4 ? kCombine[op] : " ") +
                   children[1].print() + " ) ";
        if (kind == 1) return text;
        if (kind == 2) return name + "=" + text;
        if (kind == 3) return name + (op < 6 ? kCompare[op] : "ER") + std::to_string(number);
        return "*";
    }

    std::vector<std::string> words() const {
        std::vector<std::string> result(1);
        for (const char c : text) {
            if (c == ' ' || result.back().size() == 255) {
                if (!result.back().empty()) result.emplace_back();
            }
            if (c != ' ') result.back() += c;
        }
        if (result.back().empty()) result.pop_back();
        return result;
    }

    // What takes this node's place.
    std::optional<Model> extract(std::string& keyword) const {
        if (kind == 1) {
            std::optional<Model> chain;
            const auto all = words();
            if (!all.empty()) keyword = all[0];
            for (std::size_t i = 1; i < all.size(); ++i) {
                Model further{1, 0, 0, all[i], "", {}};
                chain = chain ? Model{0, 0, 0, "", "", {further, *chain}} : further;
            }
            return chain;
        }
        if (kind != 0 || op != 0) return *this;
        const auto left = children[0].extract(keyword);
        if (!left) return children[1];
        if (!keyword.empty()) return Model{0, 0, 0, "", "", {*left, children[1]}};
        const auto right = children[1].extract(keyword);
        if (!right) return left;
        return Model{0, 0, 0, "", "", {*left, *right}};
    }
};

class Chance {
public:
    explicit Chance(unsigned seed) : engine_(seed) {}
    int below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(engine_); }
    template <std::size_t Size>
    const char* one_of(const char* const (&choices)[Size]) {
        return choices[below(static_cast<int>(Size))];
    }

    std::string tag_name() { return one_of({"\x01", "\x02", "Artist", "artist", "n", ""}); }
    std::int32_t number() { return below(5) == 0 ? INT32_MIN + below(2) : below(5) - 2; }
    std::string text(const char* letters, int longest) {
        std::string result;
        for (int length = below(longest + 1); length > 0; --length)
            result += letters[below(static_cast<int>(std::string_view(letters).size()))];
        return result;
    }

    ModelRecord record() {
        ModelRecord tags;
        for (int count = below(6); count > 0; --count)
            tags.push_back({below(3) + 1, tag_name(), text("abAB ", 24), number()});
        return tags;
    }

    Model expression(int levels) {
        const int kind = levels > 0 && below(4) != 0 ? 0 : 1 + below(4);
        // Plain "and" half of the time, so that extraction gets somewhere; rarely an unknown code.
        const int op = below(2) == 0 ? 0 : below(20) == 0 ? 5 + below(251) : below(6);
        Model node{kind, op, number(), "", "", {}};
        if (kind == 0) node.children = {expression(levels - 1), expression(levels - 1)};
        if (kind == 1 || kind == 2)
            node.text = below(40) == 0 ? std::string(300, 'a') : text("ab ", 3);
        if (kind == 2 || kind == 3) node.name = tag_name();
        return node;
    }

private:
    std::mt19937 engine_;
};

test::Record record_of(const ModelRecord& tags) {
    test::Record record;
    for (const ModelTag& tag : tags) {
        if (tag.type == 1) record = std::move(record).hash(tag.name);
        if (tag.type == 2) record = std::move(record).text(tag.name, tag.text);
        if (tag.type == 3) record = std::move(record).integer(tag.name, tag.number);
    }
    return record;
}

// Result and error lines of both on a few records.
void expect_same_evaluation(const Search& search, const Model& model, Chance& chance) {
    for (int i = 0; i < 8; ++i) {
        const ModelRecord tags = chance.record();
        test::ErrorLines errors;
        Lines expected_lines;
        const bool expected = model.evaluate(tags, expected_lines);
        EXPECT_EQ(search.matches(record_of(tags)), expected) << model.print();
        EXPECT_EQ(errors.lines, expected_lines) << model.print();
        EXPECT_TRUE(expected_lines.empty() || may_report(*search.root())) << model.print();
        if (!expected) continue;
        prefix_walk(*search.root(), [&](const SearchNode& node) {
            if (const auto* combine = node_as<SN_Operator>(&node))
                return required_sides(combine->op());
            EXPECT_TRUE(node.evaluate(record_of(tags))) << model.print();
            return Sides::neither;
        });
    }
}

TEST(SearchModelTest, RandomExpressionsBehaveAsTheModel) {
    // Set VORRIM_TEST_SEED to run one seed again.
    const char* const given = std::getenv("VORRIM_TEST_SEED");
    const unsigned seed =
        given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::cout << "seed " << seed << '\n';
    Chance chance(seed);
    for (int round = 0; round < 1000 && !testing::Test::HasFailure(); ++round) {
        Model model = chance.expression(chance.below(7));
        const std::string wire = model.wire();
        Search search;
        ASSERT_TRUE(test::read_bytes(search, wire));
        EXPECT_EQ(test::printed(search), "search( " + model.print() + " )");
        EXPECT_EQ(test::written(*search.root()), wire);
        EXPECT_EQ(static_cast<std::size_t>(search.root()->wire_size()), wire.size());
        EXPECT_EQ(test::written(*search.root()->clone()), wire);
        expect_same_evaluation(search, model, chance);

        // Extraction, and again as a continued search does while the keyword is empty.
        std::string keyword;
        for (int i = 0; i < 2; ++i) {
            if (keyword.empty())
                model = model.extract(keyword).value_or(Model{4, 0, 0, "", "", {}});
            EXPECT_EQ(search.extract_keyword(), keyword);
            EXPECT_EQ(test::printed(*search.root()), model.print());
        }
        expect_same_evaluation(search, model, chance);
    }
}

TEST(SearchModelTest, DamagedBytesAreEitherReadWholeOrRefused) {
    Chance chance(20240229);
    for (int round = 0; round < 1500; ++round) {
        std::string wire = chance.expression(4).wire();
        for (int flips = 1 + chance.below(3); flips > 0; --flips)
            wire[static_cast<std::size_t>(chance.below(static_cast<int>(wire.size())))] =
                static_cast<char>(chance.below(256));
        test::ErrorLines errors;
        kx_memory_file stream = kx_memory_file::reading(test::as_span(wire));
        Search search;
        if (!search.read(stream)) {
            EXPECT_EQ(search.root(), nullptr);
            continue;
        }
        EXPECT_LE(static_cast<std::uint32_t>(search.root()->wire_size()), stream.tell());
        const std::string once = test::written(*search.root());
        Search again;
        ASSERT_TRUE(test::read_bytes(again, once));
        EXPECT_EQ(test::written(*again.root()), once);
        static_cast<void>(search.matches(record_of(chance.record())));  // sanitizers look on
    }
}

}  // namespace
}  // namespace vorrim
