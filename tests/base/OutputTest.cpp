#include <gtest/gtest.h>
#include <string>

#include "base/Output.h"
#include "tests/base/RecordingOutput.h"

namespace vorrim {
namespace {

TEST(Output, PrintsOnStandardOutput) {
    Output output;
    ::testing::internal::CaptureStdout();
    output.printLine("a%db", 1);
    output.printError("%s", "100%");
    output.printVerbose("hidden");
    output.set_verbose(true);
    output.printVerbose(" shown");
    output.printLocked(" locked");
    output.notify("nobody listens");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "a1b\n100% shown locked");
}

TEST(Output, CutsWhatDoesNotFitItsBuffers) {
    Output output;
    const std::string text(600, 'x');
    ::testing::internal::CaptureStdout();
    output.printLine("%s", text.c_str());
    output.printError("%s", text.c_str());
    output.printLocked("%s", text.c_str());
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              std::string(255, 'x') + "\n" + std::string(255 + 511, 'x'));
}

TEST(Output, IsCurrentForTheLifeOfItsScope) {
    Output& first = current_output();
    testing::RecordingOutput outer;
    {
        const ScopedOutput outer_scope(outer);
        testing::RecordingOutput inner;
        {
            const ScopedOutput inner_scope(inner);
            current_output().printLine("in");
        }
        current_output().printLine("out");
        EXPECT_EQ(inner.all(), "in\n");
    }
    EXPECT_EQ(outer.all(), "out\n");
    EXPECT_EQ(&current_output(), &first);
    set_current_output(nullptr);
    EXPECT_EQ(&current_output(), &first);
}

}  // namespace
}  // namespace vorrim
