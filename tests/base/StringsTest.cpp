#include <array>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <random>
#include <string>

#include "base/Random.h"
#include "base/string/kx_string.h"
#include "base/string/kx_strtok.h"
#include "base/string/strings.h"

namespace vorrim {
namespace {

TEST(KxString, TellsNullFromEmpty) {
    kx_string text;
    EXPECT_TRUE(text.null());
    EXPECT_EQ(text.view(), "");
    EXPECT_EQ(text.get(), nullptr);
    EXPECT_STREQ(text.c_str(), "");
    text = "";
    EXPECT_FALSE(text.null());
    EXPECT_NE(text, kx_string());
    text = static_cast<const char*>(nullptr);
    EXPECT_EQ(text, kx_string());
}

TEST(KxString, EndsAtItsFirstNulAndMayTakePartOfItself) {
    kx_string text(std::string_view("ab\0cd", 5));
    EXPECT_EQ(text.view(), "ab");
    text = "hello world";
    text = text.view().substr(6);
    EXPECT_EQ(text.view(), "world");
    text.assign(text.get());
    EXPECT_EQ(text.view(), "world");
}

TEST(Strings, CompareAsSignedBytesWithNullFirst) {
    EXPECT_LT(kx_strcmp(nullptr, ""), 0);
    EXPECT_GT(kx_strcmp("", nullptr), 0);
    EXPECT_EQ(kx_strcmp(static_cast<const char*>(nullptr), nullptr), 0);
    EXPECT_LT(kx_strcmp("ab", "abc"), 0);
    EXPECT_GT(kx_strcmp("abd", "abc"), 0);
    EXPECT_LT(kx_strcmp("\x80", "a"), 0);
    EXPECT_NE(kx_strcmp("abc", "ABC"), 0);
    EXPECT_EQ(kx_stricmp("abc", "ABC"), 0);
    // Folded upwards: '_' lies between the two cases.
    EXPECT_LT(kx_stricmp("a", "_"), 0);
    EXPECT_LT(kx_stricmp(std::string_view("a"), std::string_view("_")), 0);
    EXPECT_NE(kx_stricmp("\xE4", "\xC4"), 0);
}

TEST(Strings, CompareMemoryPastNuls) {
    EXPECT_EQ(kx_memcmp("a\0b", "a\0c", 3), -1);
    EXPECT_EQ(kx_memcmp("a\0z", "a\0c", 3), 1);
    EXPECT_EQ(kx_memcmp("\x7F", "\x80", 1), 1);
    EXPECT_EQ(kx_memcmp("x", "y", 0), 0);
    EXPECT_EQ(kx_memicmp("aBc", "AbC", 3), 0);
    EXPECT_EQ(kx_memcmp("aBc", "AbC", 3), 1);
}

TEST(Strings, ReadNumbers) {
    EXPECT_EQ(kx_atoi("-12x"), -12);
    EXPECT_EQ(kx_atoi("x12"), 0);
    EXPECT_EQ(kx_atoi(" 1"), 0);
    EXPECT_EQ(kx_atoi("+1"), 0);
    EXPECT_EQ(kx_atoi("--1"), 0);
    EXPECT_EQ(kx_atoi(""), 0);
    EXPECT_EQ(kx_atoi("2147483647"), std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(kx_atoi("-2147483648"), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(kx_atoi("4294967297"), 1);
}

TEST(Strings, FindInAnyCase) {
    EXPECT_EQ(stristr("ABCD", "bc"), 1u);
    EXPECT_EQ(stristr("aabab", "AB"), 1u);
    EXPECT_EQ(stristr("abc", "abcd"), kx_npos);
    EXPECT_EQ(stristr("", ""), kx_npos);
    EXPECT_EQ(stristr("a", ""), 0u);
}

TEST(Strings, CopyWhatFits) {
    std::array<char, 4> to{'x', 'x', 'x', 'x'};
    kx_strncpy(to, "abcdef");
    EXPECT_STREQ(to.data(), "abc");
    kx_strncpy(std::span(to).first(1), "z");
    EXPECT_STREQ(to.data(), "");
    kx_strncpy({}, "z");
    std::string text = "AbC\xC4[@";
    kx_strlwr(text);
    EXPECT_EQ(text, "abc\xC4[@");
    EXPECT_EQ(kx_strdup(nullptr), nullptr);
    EXPECT_STREQ(kx_strdup("abc").get(), "abc");
}

// Tries every place.
std::size_t find_naively(std::string_view hay, std::string_view needle) {
    std::string folded(hay);
    kx_strlwr(folded);
    return std::string_view(folded).find(needle);
}

TEST(StrstrLower, FoldsOnlyTheHay) {
    EXPECT_EQ(kx_strstr_lower("Some LONG Name", "long"), 5u);
    EXPECT_EQ(kx_strstr_lower("Some LONG Name", "LONG"), kx_npos);
    EXPECT_EQ(kx_strstr_lower("", ""), 0u);
    EXPECT_EQ(kx_strstr_lower("abc", ""), 0u);
    EXPECT_EQ(kx_strstr_lower("", "a"), kx_npos);
    // Bytes that differ from a letter by the case bit alone are no letters.
    EXPECT_EQ(kx_strstr_lower("@[`{\xC1\xDA", "`{`{"), kx_npos);
    EXPECT_EQ(kx_strstr_lower("xxxxxxxxxxxxxxxx\xC1", "\xE1"), kx_npos);
}

// Every hay has a buffer of exactly its size, so that a sanitizer sees a read past it.
TEST(StrstrLower, AgreesWithTheNaiveSearchOverRandomTexts) {
    const char* const given = std::getenv("VORRIM_TEST_SEED");
    const std::uint64_t seed = given != nullptr ? std::strtoull(given, nullptr, 0)
                                                : (std::uint64_t{std::random_device{}()});
    SCOPED_TRACE("VORRIM_TEST_SEED=" + std::to_string(seed));
    Random random(seed);
    constexpr std::string_view kFew = "abABz";
    const auto draw = [&random, kFew](bool few) {
        return few ? kFew[random.below(kFew.size())] : static_cast<char>(random.next_u64());
    };
    int found = 0;
    for (int round = 0; round < 60000; ++round) {
        const bool few = random.below(4) != 0;
        const std::size_t size = random.below(100);
        const std::unique_ptr<char[]> bytes(std::make_unique<char[]>(size));
        for (std::size_t i = 0; i < size; ++i)
            bytes[i] = draw(few);
        const std::string_view hay(bytes.get(), size);

        std::string needle;
        if (random.below(2) == 0 && size != 0) {
            // One that is there.
            const std::size_t at = random.below(size);
            needle = hay.substr(at, random.below(24));
            kx_strlwr(needle);
        } else {
            needle.resize(random.below(8));
            for (char& c : needle)
                c = draw(few);
        }
        const std::size_t expected = find_naively(hay, needle);
        ASSERT_EQ(kx_strstr_lower(hay, needle), expected)
            << "hay '" << hay << "' needle '" << needle << "'";
        if (expected != kx_npos) ++found;
    }
    EXPECT_GT(found, 1000);
}

TEST(KxStrtok, ContinuesAtTheDelimiterOrAtTheByteThatWasTooMuch) {
    std::array<char, 5> buffer{};
    EXPECT_EQ(kx_strtok("abcd ef", " ", 0, buffer), 4);
    EXPECT_STREQ(buffer.data(), "abcd");
    EXPECT_EQ(kx_strtok("abcde ef", " ", 0, buffer), 4);
    EXPECT_EQ(kx_strtok("abcde ef", " ", 4, buffer), 5);
    EXPECT_STREQ(buffer.data(), "e");
    // The end of the text counts more than the end of the buffer.
    EXPECT_EQ(kx_strtok("abcd", " ", 0, buffer), kx_strtok_end);
}

TEST(KxStrtok, EndsAtTheEnd) {
    std::array<char, 16> buffer{'x'};
    EXPECT_EQ(kx_strtok("abc", " ", kx_strtok_end, buffer), 0);
    EXPECT_STREQ(buffer.data(), "");
    EXPECT_EQ(kx_strtok("abc  ", " ", 3, buffer), 0);
    EXPECT_EQ(kx_strtok(" ", " ", 0, buffer), 0);
    // Nothing at all is an empty token.
    EXPECT_EQ(kx_strtok("", " ", 0, buffer), kx_strtok_end);
    EXPECT_EQ(kx_strtok("abc", " ", 3, buffer), kx_strtok_end);
    EXPECT_EQ(kx_strtok("abc", " ", 4, buffer), 0);
    EXPECT_EQ(kx_strtok("abc", " ", std::numeric_limits<std::int32_t>::max(), buffer), 0);
    EXPECT_EQ(kx_strtok("\x80\xFF", "\xFF", 0, buffer), 1);
}

}  // namespace
}  // namespace vorrim
