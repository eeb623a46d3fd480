#include "base/SelfTests.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "base/BoolArray.h"
#include "base/HashTable32.h"
#include "base/Output.h"
#include "base/file/kx_memory_file.h"
#include "base/string/kx_strtok.h"
#include "base/string/strings.h"

namespace vorrim {

namespace {

constexpr std::string_view kDelimiters = " ,_-.(){}[]!?<>\t\n";
constexpr std::size_t kTokenBuffer = 256;
constexpr std::size_t kSmallBuffer = 5;

// Splits with a buffer of a given size from where the last split ended.
class Splitter final {
public:
    explicit Splitter(std::string_view text) : text_(text) {}

    [[nodiscard]] bool next_is(std::string_view token, std::size_t buffer = kTokenBuffer) {
        at_ = kx_strtok(text_, kDelimiters, at_, std::span(buffer_).first(buffer));
        return at_ != 0 && token == buffer_.data();
    }
    [[nodiscard]] bool at_end() { return kx_strtok(text_, kDelimiters, at_, buffer_) == 0; }

private:
    std::string_view text_;
    std::int32_t at_ = 0;
    std::array<char, kTokenBuffer> buffer_{};
};

bool failed(int number) {
    current_output().printLine("Test %d failed", number);
    return false;
}

}  // namespace

bool test_HashTable32(Random& random) {
    current_output().printLine(" HashTable32 test:");
    constexpr std::uint32_t kBuckets = 17;
    HashTable32<int> table;
    table.set_size(kBuckets);
    std::array<int, 4> values{};
    const auto key = static_cast<std::uint32_t>(random.next_u64());
    const auto absent = static_cast<std::uint32_t>(key + 4 + random.below(0xFFFFFFF0U));

    table.add(key, &values[0]);
    table.add(key, &values[1]);
    const auto* entry = table.find(key);
    if (entry == nullptr || entry->count() != 2 || entry->get_at(0) != &values[0] ||
        entry->get_at(1) != &values[1])
        return false;
    if (table.find(absent) != nullptr) return false;

    table.remove(key, &values[0]);
    if (table.find(key) == nullptr || table.find(key)->contains(&values[0])) return false;
    table.remove(key, &values[1]);
    if (table.find(key) != nullptr) return false;

    table.add(key, &values[0]);
    table.add(key + 1, &values[1]);
    table.add(key + 3, &values[3]);
    const auto holds = [&table](std::uint32_t wanted, const int* value) {
        const auto* found = table.find(wanted);
        return found != nullptr && found->count() == 1 && found->contains(value);
    };
    return holds(key, &values[0]) && holds(key + 1, &values[1]) && holds(key + 3, &values[3]) &&
           table.find(key + 2) == nullptr;
}

bool test_kx_strtok() {
    current_output().printLine(" kx_strtok test:");
    constexpr std::string_view kLong = "longstringofrandomwordsoverflowthebuffer";

    Splitter words("Hello OUT THere");
    if (!words.next_is("Hello") || !words.next_is("OUT") || !words.next_is("THere") ||
        !words.at_end())
        return false;
    Splitter wrapped(".)Hello(test]]]]");
    if (!wrapped.next_is("Hello") || !wrapped.next_is("test") || !wrapped.at_end()) return false;
    Splitter whole(kLong);
    if (!whole.next_is(kLong) || !whole.at_end()) return false;
    Splitter cut(kLong);
    if (!cut.next_is(kLong.substr(0, kSmallBuffer - 1), kSmallBuffer) ||
        !cut.next_is(kLong.substr(kSmallBuffer - 1)))
        return false;
    return Splitter(".!!{} ____").at_end();
}

bool test_stristr() {
    current_output().printLine(" stristr test:");
    constexpr std::string_view kHay = "Hello OUT THere";
    if (stristr(kHay, "Hello") == kx_npos) return failed(1);
    if (stristr(kHay, "dog") != kx_npos) return failed(2);
    if (stristr(kHay, "out") == kx_npos) return failed(3);
    if (stristr(kHay, "thERe") == kx_npos) return failed(4);
    return true;
}

bool test_BoolArray() {
    current_output().printLine(" BoolArray test:");
    constexpr std::int32_t kBits = 10;
    BoolArray bits(kBits);
    bits.set(0, true);
    bits.set(5, true);
    const bool set = bits.get(0) && bits.get(5) && !bits.get(2) && !bits.get(9);
    bits.set(5, false);
    if (!set || bits.get(5)) return failed(1);

    std::array<std::byte, 30> bytes{};
    kx_memory_file stream{std::span(bytes)};
    bits.write(stream);
    stream.seek(0);
    BoolArray other(1);
    other.read(stream);
    if (other.count() != kBits) return failed(2);
    other.set(9, true);
    if (!other.get(0) || !other.get(9) || other.get(1) || other.get(2) || other.get(5))
        return failed(2);
    return true;
}

bool test_platform() {
    return true;
}

SelfTestSuite build_self_tests(Random& random, SelfTestSuite from_above) {
    SelfTestSuite suite;
    const auto add = [&suite](std::function<bool()> test) {
        suite.append(std::make_unique<FunctionSelfTest>(std::move(test)));
    };
    add([&random] { return test_HashTable32(random); });
    add(test_kx_strtok);
    add(test_stristr);
    suite.splice(from_above);
    add(test_BoolArray);
    add(test_platform);
    return suite;
}

bool run_self_tests(const SelfTestSuite& suite) {
    for (const std::unique_ptr<SelfTest>& test : suite) {
        if (!test->run()) {
            current_output().printLine("ERRORS ::::--- FIX NOW");
            return false;
        }
    }
    current_output().printLine("go.");
    return true;
}

}  // namespace vorrim
