#include "AdminAccount.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <sys/stat.h>
#include <system_error>
#include <termios.h>
#include <unistd.h>
#include <utility>

#include "Failure.h"
#include "Text.h"
#include "platform/Descriptor.h"

namespace vorrim::cli {

namespace {

constexpr const char* kNameVariable = "VORRIM_ADMIN_NAME";
constexpr const char* kPasswordVariable = "VORRIM_ADMIN_PASSWORD";
constexpr const char* kNothingGiven = "no name or password was given";
// Far more than two lines that anybody types.
constexpr std::size_t kLongestFile = 4096;

std::string last_error() {
    return std::generic_category().message(errno);
}

std::optional<std::string> variable(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

std::string take_line(std::string& text) {
    const std::size_t end = text.find('\n');
    std::string line = text.substr(0, end);
    text.erase(0, end == std::string::npos ? end : end + 1);
    if (line.ends_with('\r')) line.pop_back();
    return line;
}

// False when a signal comes before there is something to read.
bool wait_for(int descriptor, const Interrupt& interrupt) {
    std::array<pollfd, 2> watched = {pollfd{interrupt.handle(), POLLIN, 0},
                                     pollfd{descriptor, POLLIN, 0}};
    return ::poll(watched.data(), watched.size(), -1) > 0 && watched[0].revents == 0;
}

// All that a file or a pipe has to give, at once or bit by bit.
std::string content_of(const Descriptor& file, const Interrupt& interrupt,
                       const std::string& what) {
    std::string text(kLongestFile + 1, '\0');
    std::size_t size = 0;
    while (size < text.size()) {
        if (!wait_for(file.get(), interrupt)) throw Failure(kNothingGiven);
        const ssize_t count = ::read(file.get(), text.data() + size, text.size() - size);
        if (count < 0) throw Failure(what + last_error());
        if (count == 0) break;
        size += static_cast<std::size_t>(count);
    }
    if (size > kLongestFile) throw Failure(what + "it is too long for a name and a password");
    text.resize(size);
    return text;
}

// One line is the password, two are name and password.
void read_file(const Context& context, const Interrupt& interrupt, const std::string& path,
               std::optional<std::string>& name, std::optional<std::string>& password) {
    const std::string what = "cannot read " + printable(path) + ": ";
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat state {};
    if (!file.open() || ::fstat(file.get(), &state) != 0) throw Failure(what + last_error());
    std::string text = content_of(file, interrupt, what);
    std::string first = take_line(text);
    std::string second = take_line(text);
    if (second.empty()) {
        password = std::move(first);
    } else {
        if (!name) name = std::move(first);
        password = std::move(second);
    }
    if (S_ISREG(state.st_mode) && (state.st_mode & (S_IRGRP | S_IROTH)) != 0) {
        const std::string warning =
            "warning: others may read " + printable(path) + " (chmod 600 ends that)";
        std::fprintf(stderr, "vorrim-cli: %s\n",
                     context.terminal.on_errors(Style::bold, warning).c_str());
    }
}

// The person at the terminal, whatever standard input and output are.
class Person {
public:
    explicit Person(const Interrupt& interrupt)
        : interrupt_(interrupt), terminal_(::open("/dev/tty", O_RDWR | O_CLOEXEC)) {}

    [[nodiscard]] bool there() const noexcept { return terminal_.open(); }

    [[nodiscard]] std::string ask(std::string_view question, bool echo) {
        termios before{};
        const bool known = ::tcgetattr(terminal_.get(), &before) == 0;
        termios silent = before;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        // What was typed ahead was echoed, so it is no password.
        if (known && !echo) ::tcsetattr(terminal_.get(), TCSAFLUSH, &silent);
        say(question);
        std::optional<std::string> answer = line();
        if (known && !echo) ::tcsetattr(terminal_.get(), TCSANOW, &before);
        if (!answer || !echo) say("\n");
        if (!answer) throw Failure(kNothingGiven);
        return *answer;
    }

private:
    void say(std::string_view text) const {
        [[maybe_unused]] const auto written = ::write(terminal_.get(), text.data(), text.size());
    }
    // Nothing when the terminal or the person's patience has ended.
    [[nodiscard]] std::optional<std::string> line() const {
        if (!wait_for(terminal_.get(), interrupt_)) return std::nullopt;
        std::array<char, 1024> room;  // the terminal hands over a line at a time
        const ssize_t count = ::read(terminal_.get(), room.data(), room.size());
        if (count <= 0) return std::nullopt;
        std::string text(room.data(), static_cast<std::size_t>(count));
        return take_line(text);
    }

    const Interrupt& interrupt_;
    Descriptor terminal_;
};

}  // namespace

AdminAccount admin_account(const Context& context, const Interrupt& interrupt) {
    std::optional<std::string> name = context.options.user;
    std::optional<std::string> password;
    if (const auto& path = context.options.password_file)
        read_file(context, interrupt, *path, name, password);
    if (!name) name = variable(kNameVariable);
    if (!password) password = variable(kPasswordVariable);
    if (!name || !password) {
        Person person(interrupt);
        if (!person.there()) {
            throw Failure(std::string("no name or password: set ") + kNameVariable + " and " +
                          kPasswordVariable +
                          ", give --user and --password-file, or use a terminal");
        }
        if (!name) name = person.ask("Administrator's name: ", true);
        if (!password) password = person.ask("Password: ", false);
    }
    return {std::move(*name), std::move(*password)};
}

}  // namespace vorrim::cli
