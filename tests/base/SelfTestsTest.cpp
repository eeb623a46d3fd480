#include <gtest/gtest.h>

#include "base/SelfTests.h"
#include "tests/base/RecordingOutput.h"

namespace vorrim {
namespace {

SelfTestSuite from_above(bool result) {
    SelfTestSuite suite;
    suite.append(std::make_unique<FunctionSelfTest>([result] {
        current_output().printLine(" upper test:");
        return result;
    }));
    return suite;
}

TEST(SelfTests, PassInTheirOrder) {
    for (std::uint64_t seed = 0; seed < 100; ++seed) {
        testing::RecordingOutput output;
        const ScopedOutput scope(output);
        Random random(seed);
        EXPECT_TRUE(run_self_tests(build_self_tests(random, from_above(true))));
        EXPECT_EQ(output.all(),
                  " HashTable32 test:\n kx_strtok test:\n stristr test:\n upper test:\n"
                  " BoolArray test:\ngo.\n");
    }
}

TEST(SelfTests, StopAtTheFirstThatFails) {
    testing::RecordingOutput output;
    const ScopedOutput scope(output);
    Random random(1);
    EXPECT_FALSE(run_self_tests(build_self_tests(random, from_above(false))));
    EXPECT_EQ(output.all(),
              " HashTable32 test:\n kx_strtok test:\n stristr test:\n upper test:\n"
              "ERRORS ::::--- FIX NOW\n");
}

}  // namespace
}  // namespace vorrim
