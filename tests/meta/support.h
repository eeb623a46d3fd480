#pragma once
// What the tests of this floor share: bytes written as hexadecimal, and an output that remembers.

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <gtest/gtest.h>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Output.h"
#include "base/file/kx_memory_file.h"
#include "meta/FileHash.h"
#include "meta/Serializable.h"

namespace vorrim::test {

using Bytes = std::vector<std::byte>;

// "03 01 00" -> three bytes; blanks are ignored.
inline Bytes hex(std::string_view text) {
    Bytes bytes;
    unsigned value = 0;
    bool half = false;
    for (const char c : text) {
        if (c == ' ') continue;
        value = value * 16 + static_cast<unsigned>(c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10);
        if (half) bytes.push_back(static_cast<std::byte>(value));
        if (half) value = 0;
        half = !half;
    }
    return bytes;
}

inline std::string to_hex(std::span<const std::byte> bytes) {
    std::string text;
    std::array<char, 4> digits{};
    for (const std::byte byte : bytes) {
        std::snprintf(digits.data(), digits.size(), "%02X ", std::to_integer<unsigned>(byte));
        text += digits.data();
    }
    return text;
}

inline Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// 00 01 02 ... 0F
inline const Bytes kCountingHash = hex("00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F");

// Copies what a stream holds.
inline Bytes copy_of(std::span<const std::byte> bytes) {
    return {bytes.begin(), bytes.end()};
}

inline kx_memory_file stream_of(std::span<const std::byte> bytes) {
    return kx_memory_file::reading(bytes);
}

inline Bytes network_form(const Serializable& item) {
    kx_memory_file out(64);
    EXPECT_TRUE(item.toNetwork(out));
    return copy_of(out.contents());
}

inline Bytes disk_form(const Serializable& item) {
    kx_memory_file out(64);
    EXPECT_TRUE(item.toDisk(out));
    return copy_of(out.contents());
}

// Current for its lifetime. Each text is kept with the letter of its operation: L(ine), E(rror),
// V(erbose).
class RecordedOutput final : public Output {
public:
    void vprintLine(const char* format, va_list arguments) override {
        keep("L:", format, arguments);
    }
    void vprintError(const char* format, va_list arguments) override {
        keep("E:", format, arguments);
    }
    void vprintVerbose(const char* format, va_list arguments) override {
        keep("V:", format, arguments);
    }

    // What has been printed since the last call.
    [[nodiscard]] std::string take() { return std::exchange(text_, {}); }

private:
    void keep(const char* kind, const char* format, va_list arguments)
        __attribute__((format(printf, 3, 0))) {
        std::array<char, 512> text{};
        std::vsnprintf(text.data(), text.size(), format, arguments);
        text_ += kind;
        text_ += text.data();
    }

    std::string text_;
    ScopedOutput current_{*this};
};

}  // namespace vorrim::test
