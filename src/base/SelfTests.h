#pragma once
// The tests that the operator's "test" command runs inside the server: a list of test objects, run
// in order until one fails. Upper floors put theirs in their place.
//
// Threads: none inside.

#include <functional>
#include <memory>
#include <utility>

#include "base/Random.h"
#include "base/kx_list.h"

namespace vorrim {

class SelfTest {
public:
    SelfTest() = default;
    virtual ~SelfTest() = default;
    SelfTest(const SelfTest&) = delete;
    SelfTest& operator=(const SelfTest&) = delete;

    // Prints a title on the current output, and what fails. True when all is well.
    [[nodiscard]] virtual bool run() = 0;
};

// A test that is a function.
class FunctionSelfTest final : public SelfTest {
public:
    explicit FunctionSelfTest(std::function<bool()> test) : test_(std::move(test)) {}
    [[nodiscard]] bool run() override { return test_(); }

private:
    std::function<bool()> test_;
};

using SelfTestSuite = kx_list<std::unique_ptr<SelfTest>>;

// The tests of this floor, one by one.
[[nodiscard]] bool test_HashTable32(Random& random);
[[nodiscard]] bool test_kx_strtok();
[[nodiscard]] bool test_stristr();
[[nodiscard]] bool test_BoolArray();
[[nodiscard]] bool test_platform();

// HashTable32, kx_strtok, stristr, the tests of the floors above in their order, BoolArray,
// platform. `random` must outlive the suite.
[[nodiscard]] SelfTestSuite build_self_tests(Random& random, SelfTestSuite from_above);

// Prints "go." when all pass, "ERRORS ::::--- FIX NOW" after the first that fails.
bool run_self_tests(const SelfTestSuite& suite);

}  // namespace vorrim
