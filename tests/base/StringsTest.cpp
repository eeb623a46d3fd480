// Texts: read, found, cut into tokens, printed.
#include <array>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <random>
#include <string>

#include "base/Random.h"
#include "base/file/kx_memory_file.h"
#include "base/file/primitives.h"
#include "base/string/kx_printf.h"
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
    Random random(std::random_device{}());
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
            << ::testing::PrintToString(std::string(hay)) << ::testing::PrintToString(needle);
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

template <class... Args>
std::string printed(kx_format_text<std::type_identity_t<Args>...> format, const Args&... args) {
    kx_memory_file out(8);
    const std::uint32_t count = kx_printf(out, format, args...);
    EXPECT_EQ(count, out.size());
    return std::string(text_of(out.contents()));
}

std::string printed_late(std::string_view format, std::initializer_list<kx_arg> arguments) {
    kx_memory_file out(8);
    kx_vprintf(out, format, {arguments.begin(), arguments.size()});
    return std::string(text_of(out.contents()));
}

TEST(KxPrintf, PrintsNumbersInTheirBases) {
    EXPECT_EQ(printed("%x %o %d %u", 255, 8, -5, 0), "ff 10 -5 0");
    EXPECT_EQ(printed("%i", std::numeric_limits<std::int32_t>::min()), "-2147483648");
    EXPECT_EQ(printed("%u %x %p %o", -1, -1, 0xDEADBEEFU, -1),
              "4294967295 ffffffff deadbeef 37777777777");
    EXPECT_EQ(printed("%d", std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
    EXPECT_EQ(printed("%o", std::numeric_limits<std::uint64_t>::max()), "1777777777777777777777");
}

TEST(KxPrintf, IgnoresWhatItDoesNotKnow) {
    EXPECT_EQ(printed("[%-08.3d]", 7), "[7]");
    EXPECT_EQ(printed("a%qb%d", 1), "ab1");
    EXPECT_EQ(printed("100%% %5% %"), "100% % ");
    EXPECT_EQ(printed("%12"), "");
}

TEST(KxPrintf, PrintsNothingForAnArgumentThatDoesNotFitALateFormat) {
    EXPECT_EQ(printed_late("%s %d", {kx_arg(1), kx_arg("x")}), " ");
    EXPECT_EQ(printed_late("%d %d %s", {kx_arg(1)}), "1  ");
    EXPECT_EQ(printed_late("%d", {kx_arg(1), kx_arg(2)}), "1");
}

TEST(KxPrintf, CutsToABufferAndGrowsAText) {
    std::array<char, 4> buffer{};
    EXPECT_STREQ(kx_snprintf(buffer, "%s", "abcdef"), "abc");
    EXPECT_STREQ(kx_snprintf(buffer, "%d", 1234567), "123");
    EXPECT_STREQ(kx_snprintf(std::span(buffer).first(1), "%d", 1), "");
    EXPECT_STREQ(kx_snprintf({}, "%d", 1), "");
    const std::string longer(1300, 'y');
    kx_string text;
    kx_format(text, "%s!", longer);
    EXPECT_EQ(text.view(), longer + "!");
}

}  // namespace
}  // namespace vorrim
