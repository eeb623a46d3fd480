#include "tests/wire/harness/Terminal.h"

#include <array>
#include <fcntl.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "tests/wire/harness/Bytes.h"

namespace vorrim::wire {

Terminal::Terminal() {
    int person = -1;
    int program = -1;
    const winsize size{24, 80, 0, 0};
    if (::openpty(&person, &program, nullptr, nullptr, &size) != 0)
        throw WireFailure("no terminal");
    person_ = Socket(person);
    program_ = Socket(program);
    for (const int end : {person, program})
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
    ::fcntl(person, F_SETFL, O_NONBLOCK);
}

void Terminal::take() const {
    ::setsid();
    ::ioctl(program_.descriptor(), TIOCSCTTY, 0);
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        ::dup2(program_.descriptor(), standard);
}

void Terminal::type(std::string_view keys) const {
    if (::write(person_.descriptor(), keys.data(), keys.size()) !=
        static_cast<ssize_t>(keys.size()))
        throw WireFailure("the terminal takes no more keys");
}

const std::string& Terminal::shown() {
    std::array<char, 4096> room{};
    for (ssize_t count = 0; (count = ::read(person_.descriptor(), room.data(), room.size())) > 0;)
        shown_.append(room.data(), static_cast<std::size_t>(count));
    return shown_;
}

void Terminal::wait_for(std::string_view text) {
    std::size_t at = std::string::npos;
    try {
        wait_until("the terminal shows \"" + std::string(text) + '"',
                   [&] { return (at = shown().find(text, found_)) != std::string::npos; });
    } catch (const WireFailure& failure) {
        throw WireFailure(failure.what() + ("\nIt shows:\n" + shown_));
    }
    found_ = at + text.size();
}

bool Terminal::as_it_was() const {
    termios mode{};
    constexpr tcflag_t kLines = ICANON | ECHO;
    return ::tcgetattr(program_.descriptor(), &mode) == 0 && (mode.c_lflag & kLines) == kLines;
}

void Terminal::close() {
    program_.close();
    person_.close();
}

}  // namespace vorrim::wire
