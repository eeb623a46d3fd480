#include "Terminal.h"

#include <cstdlib>
#include <sys/ioctl.h>
#include <unistd.h>

namespace vorrim::cli {

namespace {

std::string_view sequence(Style style) {
    switch (style) {
        case Style::bold:
            return "\x1b[1m";
        case Style::dim:
            return "\x1b[2m";
        case Style::good:
            return "\x1b[32m";
        case Style::bad:
            return "\x1b[31m";
        case Style::plain:
            break;
    }
    return "";
}

std::string styled(bool wanted, Style style, std::string_view text) {
    if (!wanted || style == Style::plain) return std::string(text);
    return std::string(sequence(style)) + std::string(text) + "\x1b[0m";
}

}  // namespace

Terminal Terminal::detect() {
    Terminal found;
    found.output_ = ::isatty(STDOUT_FILENO) == 1;
    found.errors_ = ::isatty(STDERR_FILENO) == 1;
    const char* term = std::getenv("TERM");
    const char* refused = std::getenv("NO_COLOR");
    const bool dumb = term == nullptr || std::string_view(term) == "dumb";
    found.styles_ = !dumb && (refused == nullptr || *refused == '\0');
    winsize size{};
    if (found.output_ && ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        found.width_ = size.ws_col;
    }
    return found;
}

Terminal Terminal::of_width(std::size_t columns) {
    Terminal narrow;
    narrow.width_ = columns;
    return narrow;
}

std::string Terminal::on_output(Style style, std::string_view text) const {
    return styled(output_ && styles_, style, text);
}

std::string Terminal::on_errors(Style style, std::string_view text) const {
    return styled(errors_ && styles_, style, text);
}

}  // namespace vorrim::cli
