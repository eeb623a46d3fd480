#include <gtest/gtest.h>

#include "search/SearchParser.h"
#include "tests/search/SearchFixture.h"

namespace vorrim {
namespace {

using test::as_span;
using test::bytes;
using test::written;

std::unique_ptr<SearchNode> parse(std::string_view wire) {
    kx_memory_file stream = kx_memory_file::reading(as_span(wire));
    return parse_search_node(stream);
}

// A chain of `operators` operators over substring nodes, leaning to the left or to the right.
std::string chain(std::size_t operators, bool to_the_left) {
    const std::string op = bytes("\x00\x00");
    const std::string leaf = bytes("\x01\x01\x00z");
    std::string wire;
    for (std::size_t i = 0; i < operators; ++i)
        wire += to_the_left ? op : op + leaf;
    wire += leaf;
    if (to_the_left)
        for (std::size_t i = 0; i < operators; ++i)
            wire += leaf;
    return wire;
}

// A full tree of 2^levels - 1 operators over leaves that match everything.
std::string full_tree(int levels) {
    if (levels == 0) return "\x04";
    const std::string side = full_tree(levels - 1);
    return bytes("\x00\x00") + side + side;
}

TEST(SearchParserTest, UnknownTypeBytesFailAndUnknownOpsDoNot) {
    for (int type = 5; type < 256; ++type)
        EXPECT_FALSE(parse(std::string(1, static_cast<char>(type)) + "\x04\x04"));
    EXPECT_FALSE(parse(bytes("\x00\x00\x04\x05")));
    for (int op = 0; op < 256; ++op) {
        std::string wire = bytes("\x00\x00\x04\x03\x00\x00\x00\x00\x00\x00\x00");
        wire[1] = wire[8] = static_cast<char>(op);
        const auto node = parse(wire);
        ASSERT_TRUE(node) << op;
        EXPECT_EQ(written(*node), wire);
    }
}

TEST(SearchParserTest, TheTextLengthThatIsNoLengthFails) {
    EXPECT_FALSE(parse(bytes("\x01\xFF\xFF") + std::string(0xFFFF, 'a')));
    EXPECT_TRUE(parse(bytes("\x01\xFE\xFF") + std::string(0xFFFE, 'a')));
}

TEST(SearchParserTest, NestingIsBounded) {
    for (const bool to_the_left : {true, false}) {
        EXPECT_TRUE(parse(chain(kMaxSearchDepth - 1, to_the_left)));
        EXPECT_FALSE(parse(chain(kMaxSearchDepth, to_the_left)));
        EXPECT_FALSE(parse(chain(100 * kMaxSearchDepth, to_the_left)));
    }
    EXPECT_FALSE(parse(std::string(1 << 20, '\0'))) << "operators only";
}

TEST(SearchParserTest, TheNumberOfNodesIsBounded) {
    constexpr int kLevels = 15;  // 2^16 - 1 nodes
    static_assert(kMaxSearchNodes == std::size_t{1} << (kLevels + 1));
    EXPECT_TRUE(parse(full_tree(kLevels)));
    const std::string tree = full_tree(kLevels);
    EXPECT_FALSE(parse(bytes("\x00\x00") + tree + "\x04")) << "one node too many";
    EXPECT_FALSE(parse(full_tree(kLevels + 5)));
}

}  // namespace
}  // namespace vorrim
