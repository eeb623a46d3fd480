#include <gtest/gtest.h>
#include <string>

#include "base/Output.h"
#include "tests/base/RecordingOutput.h"

namespace vorrim {
namespace {

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

}  // namespace
}  // namespace vorrim
