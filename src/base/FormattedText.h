#pragma once
// One formatted message in a buffer of its own, cut to what fits.
//
// Threads: none inside. Nothing allocates, nothing raises.

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <string_view>

namespace vorrim {

// `Size` counts the terminating zero.
template <std::size_t Size>
class FormattedText final {
public:
    __attribute__((format(printf, 2, 0)))
    FormattedText(const char* format, va_list arguments) noexcept {
        const int length = std::vsnprintf(text_.data(), Size, format, arguments);
        length_ = length > 0 ? std::min(static_cast<std::size_t>(length), Size - 1) : 0;
        text_[length_] = '\0';
    }
    // Adds a newline, for which there is always room. Once.
    void end_line() noexcept {
        text_[length_++] = '\n';
        text_[length_] = '\0';
    }
    [[nodiscard]] std::string_view view() const noexcept { return {text_.data(), length_}; }
    [[nodiscard]] const char* c_str() const noexcept { return text_.data(); }

private:
    std::array<char, Size + 1> text_;  // as much of it as was formatted is written
    std::size_t length_;
};

}  // namespace vorrim
