#pragma once
// What is known of the two output streams, and the few ways to mark text on them.
//
// Colours, progress lines and fitting to a width are for people: they happen only on a stream that
// is a terminal. A pipe or a file gets plain lines, complete and uncut.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace vorrim::cli {

enum class Style { plain, bold, dim, good, bad };

class Terminal {
public:
    // Looks at standard output and standard error. NO_COLOR and TERM=dumb turn the styles off.
    static Terminal detect();
    // A stream that is no terminal: what tests and scripts see.
    static Terminal none() { return Terminal(); }
    // No styles, but lines that have to fit.
    static Terminal of_width(std::size_t columns);

    [[nodiscard]] bool output_is_terminal() const noexcept { return output_; }
    [[nodiscard]] bool errors_are_terminal() const noexcept { return errors_; }
    // Columns of standard output; nothing when lines need not be cut.
    [[nodiscard]] std::optional<std::size_t> width() const noexcept { return width_; }

    [[nodiscard]] std::string on_output(Style style, std::string_view text) const;
    [[nodiscard]] std::string on_errors(Style style, std::string_view text) const;

private:
    Terminal() = default;

    bool output_ = false;
    bool errors_ = false;
    bool styles_ = false;
    std::optional<std::size_t> width_;
};

}  // namespace vorrim::cli
