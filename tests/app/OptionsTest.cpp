#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "app/Options.h"

namespace vorrim {
namespace {

std::variant<Options, int> parse(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "vorrim");
    return parseOptions(static_cast<int>(arguments.size()), arguments.data());
}

TEST(Options, TheSettingsFileHasItsUsualNameUnlessAnotherIsNamed) {
    const Options usual = std::get<Options>(parse({}));
    EXPECT_EQ(usual.action, Options::Action::serve);
    EXPECT_EQ(usual.settings_file, "vorrim.ini");
    EXPECT_FALSE(usual.settings_file_named);
    const Options named = std::get<Options>(parse({"--check-config", "--config", "a b.ini"}));
    EXPECT_EQ(named.action, Options::Action::check_config);
    EXPECT_EQ(named.settings_file, "a b.ini");
    EXPECT_TRUE(named.settings_file_named);
}

TEST(Options, AMistakeIsOneLineOnStandardErrorAndStatus2) {
    for (const std::vector<const char*>& mistake :
         {std::vector<const char*>{"--bogus"}, {"--config"}, {"start"}}) {
        ::testing::internal::CaptureStderr();
        const auto parsed = parse(mistake);
        const std::string said = ::testing::internal::GetCapturedStderr();
        ASSERT_TRUE(std::holds_alternative<int>(parsed)) << mistake[0];
        EXPECT_EQ(std::get<int>(parsed), 2);
        EXPECT_EQ(said.find("vorrim: "), 0U);
        EXPECT_EQ(said.find('\n'), said.size() - 1) << said;
    }
}

}  // namespace
}  // namespace vorrim
