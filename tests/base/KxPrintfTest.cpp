#include <array>
#include <gtest/gtest.h>
#include <limits>
#include <string>

#include "base/file/kx_memory_file.h"
#include "base/file/primitives.h"
#include "base/string/kx_printf.h"

namespace vorrim {
namespace {

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

class Named final : public kx_printable {
public:
    void print(kx_file& out) const override { out.write("named", 5); }
};

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
