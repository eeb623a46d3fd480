#include <gtest/gtest.h>
#include <vector>

#include "Options.h"

namespace vorrim::cli {
namespace {

ParsedOptions parsed(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "vorrim-cli");
    return parse_options(static_cast<int>(arguments.size()), arguments.data());
}

TEST(OptionsTest, DeniedWordsAreWordsAndOptionsStayOptionsAnywhere) {
    const ParsedOptions result =
        parsed({"--port", "5000", "search", "linux", "-kernel", "--more", "-type=image", "--json",
                "--timeout", "0.5", "--udp", "--host", "h"});
    ASSERT_FALSE(result.exit_code);
    const Options& options = result.options;
    EXPECT_EQ(options.command, Command::search);
    EXPECT_EQ(options.words, (std::vector<std::string>{"linux", "-kernel", "-type=image"}));
    EXPECT_EQ(options.host, "h");
    EXPECT_EQ(options.port, 5000);
    EXPECT_EQ(options.timeout.count(), 500);
    EXPECT_TRUE(options.more && options.json && options.udp);
    EXPECT_FALSE(options.listen);
}

TEST(OptionsTest, SenselessCommandLinesEndWithTwoAndHelpWithNought) {
    EXPECT_EQ(parsed({}).exit_code, 2);
    testing::internal::CaptureStderr();
    EXPECT_EQ(parsed({"dance"}).exit_code, 2);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "vorrim-cli: there is no command or option dance (see vorrim-cli --help)\n");
    EXPECT_EQ(parsed({"search"}).exit_code, 2);
    EXPECT_EQ(parsed({"status", "extra"}).exit_code, 2);
    EXPECT_EQ(parsed({"status", "--port", "0"}).exit_code, 2);
    EXPECT_EQ(parsed({"status", "--port", "65532"}).exit_code, 2);  // no room for the datagram door
    EXPECT_EQ(parsed({"status", "--port", "x"}).exit_code, 2);
    EXPECT_EQ(parsed({"status", "--listen", "65536"}).exit_code, 2);
    EXPECT_EQ(parsed({"--help"}).exit_code, 0);
    EXPECT_EQ(parsed({"--version"}).exit_code, 0);
}

}  // namespace
}  // namespace vorrim::cli
