#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "app/Options.h"
#include "app/ServerSettings.h"

namespace vorrim {
namespace {

std::variant<Options, int> parse(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "vorrim");
    return parseOptions(static_cast<int>(arguments.size()), arguments.data());
}

TEST(Options, WithoutArgumentsTheServerRunsOnItsUsualFile) {
    const Options options = std::get<Options>(parse({}));
    EXPECT_EQ(options.action, Options::Action::serve);
    EXPECT_EQ(options.settings_file, "vorrim.ini");
    EXPECT_FALSE(options.settings_file_named);
}

TEST(Options, AnotherFileMayBeNamedAndChecked) {
    const Options options = std::get<Options>(parse({"--check-config", "--config", "a b.ini"}));
    EXPECT_EQ(options.action, Options::Action::check_config);
    EXPECT_EQ(options.settings_file, "a b.ini");
    EXPECT_TRUE(options.settings_file_named);
}

TEST(Options, HelpAndVersionAnswerOnStandardOutput) {
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(std::get<int>(parse({"--version"})), 0);
    const std::string version = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(version, "vorrim " + std::to_string(ServerSettings::kVersionMajor) + "." +
                           std::to_string(ServerSettings().versionMinor) + "\n");

    ::testing::internal::CaptureStdout();
    EXPECT_EQ(std::get<int>(parse({"--help"})), 0);
    const std::string help = ::testing::internal::GetCapturedStdout();
    for (const char* option : {"--help", "--version", "--config FILE", "--check-config"})
        EXPECT_NE(help.find(option), std::string::npos) << option;
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
