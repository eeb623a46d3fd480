#include "base/Screen.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>

#include "base/kx_err.h"
#include "base/string/printable.h"

namespace vorrim {

namespace {

// For a terminal that somebody has stopped. What is printed waits in a queue, so this may be short.
constexpr int kPatience = 200;  // ms
constexpr int kUsualColumns = 80;

// One that does not wait, without a surprise for the shell that shares the other.
int another_description(int terminal) noexcept {
    const std::string name = "/proc/self/fd/" + std::to_string(terminal);
    const int own = ::open(name.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    return own >= 0 ? own : ::fcntl(terminal, F_DUPFD_CLOEXEC, 0);
}

}  // namespace

Screen::Screen(int output) : descriptor_(another_description(output)) {
    if (!descriptor_.open()) kx_error("no descriptor for the terminal");
}

int Screen::columns() const noexcept {
    winsize size{};
    const bool known = ::ioctl(descriptor(), TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return known ? size.ws_col : kUsualColumns;
}

bool Screen::show(std::string_view text) const {
    return control(printable_lines(text));
}

bool Screen::control(std::string_view keys) const noexcept {
    while (!keys.empty()) {
        const ssize_t count = ::write(descriptor(), keys.data(), keys.size());
        if (count > 0) {
            keys.remove_prefix(static_cast<std::size_t>(count));
            continue;
        }
        if (count < 0 && errno == EINTR) continue;
        if (count < 0 && errno != EAGAIN) return false;
        pollfd room{descriptor(), POLLOUT, 0};
        if (::poll(&room, 1, kPatience) != 1) return false;
    }
    return true;
}

}  // namespace vorrim
