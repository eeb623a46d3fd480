#pragma once
// A terminal with a person before it: what a program shows on it, and what is typed.

#include <array>
#include <fcntl.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "tests/wire/harness/Bytes.h"
#include "tests/wire/harness/Socket.h"

namespace vorrim::wire {

class Terminal final {
public:
    Terminal() {
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

    // In the child of a fork: a session of its own, with this as its terminal, as standard input,
    // output and error. Safe after a fork.
    void take() const {
        ::setsid();
        ::ioctl(program_.descriptor(), TIOCSCTTY, 0);
        for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            ::dup2(program_.descriptor(), standard);
    }

    void type(std::string_view keys) const {
        if (::write(person_.descriptor(), keys.data(), keys.size()) !=
            static_cast<ssize_t>(keys.size()))
            throw WireFailure("the terminal takes no more keys");
    }
    // Everything shown so far, with the terminal's control sequences.
    [[nodiscard]] const std::string& shown() {
        std::array<char, 4096> room{};
        ssize_t count = 0;
        while ((count = ::read(person_.descriptor(), room.data(), room.size())) > 0)
            shown_.append(room.data(), static_cast<std::size_t>(count));
        return shown_;
    }
    // Until the text is shown behind what earlier waits have found.
    void wait_for(std::string_view text) {
        std::size_t at = std::string::npos;
        try {
            wait_until("the terminal shows \"" + std::string(text) + '"',
                       [&] { return (at = shown().find(text, found_)) != std::string::npos; });
        } catch (const WireFailure& failure) {
            throw WireFailure(failure.what() + ("\nIt shows:\n" + shown_));
        }
        found_ = at + text.size();
    }
    // Whether it hands over whole lines and echoes, as it did before anybody took it.
    [[nodiscard]] bool as_it_was() const {
        termios mode{};
        constexpr tcflag_t kLines = ICANON | ECHO;
        return ::tcgetattr(program_.descriptor(), &mode) == 0 && (mode.c_lflag & kLines) == kLines;
    }
    // Hangs up.
    void close() {
        program_.close();
        person_.close();
    }

private:
    Socket person_;
    Socket program_;  // kept open, so that the terminal outlives its program
    std::string shown_;
    std::size_t found_ = 0;
};

}  // namespace vorrim::wire
