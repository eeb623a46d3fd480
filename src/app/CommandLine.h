#pragma once
// The words of a console line, one after the other.
//
// Threads: none inside. The line must outlive the object.

#include <cstdint>
#include <string_view>

#include "base/string/kx_strtok.h"

namespace vorrim {

class CommandLine final {
public:
    explicit CommandLine(std::string_view line) noexcept : line_(line) {}

    // The next word, empty when there is none. Words are separated by any run of blanks, commas,
    // tabs and newlines.
    std::string_view next() noexcept {
        constexpr kx_char_set kSeparators(" ,\t\n");
        std::string_view word;
        if (!over_) at_ = kx_strtok(line_, kSeparators, at_, word);
        over_ = over_ || at_ <= 0;
        return word;
    }

    // What stands behind the last word and the one separator that ended it.
    [[nodiscard]] std::string_view rest() const noexcept {
        return over_ ? std::string_view() : line_.substr(static_cast<std::size_t>(at_) + 1);
    }

private:
    std::string_view line_;
    std::int32_t at_ = 0;
    bool over_ = false;
};

}  // namespace vorrim
