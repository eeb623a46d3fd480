#include <array>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <random>
#include <string>

#include "base/Random.h"
#include "base/string/kx_strtok.h"
#include "base/string/strings.h"

namespace vorrim {
namespace {

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

// Tries every place.
std::size_t find_naively(std::string_view hay, std::string_view needle) {
    std::string folded(hay);
    kx_strlwr(folded);
    return std::string_view(folded).find(needle);
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
