#include "app/Console.h"

#include <algorithm>
#include <new>
#include <utility>

#include "app/CommandLine.h"
#include "base/kx_err.h"

namespace vorrim {

namespace {

// Takes as long as the given text is, whatever it is compared with.
bool same_text(std::string_view given, const std::optional<std::string>& wanted) {
    const std::string_view text = wanted ? std::string_view(*wanted) : std::string_view();
    unsigned difference = given.size() == text.size() && wanted ? 0U : 1U;
    for (std::size_t i = 0; i < given.size(); ++i) {
        const char other = text.empty() ? '\0' : text[i % text.size()];
        difference |= static_cast<unsigned char>(given[i] ^ other);
    }
    return difference == 0;
}

}  // namespace

Console::~Console() {
    const kx_guard hold(remote_lock_);
    if (holder_ != nullptr) give_output_back();
}

void Console::stop() {
    running_.store(false);
    input_.wake();
}

void Console::run(bool reads_lines) {
    if (reads_lines) current_output().printLine("Enter commands at any time (type '?' for help)\n");
    while (running()) {
        if (input_ended_) {
            // Nobody is there to agree to anything.
            if (answer("")) continue;
        } else if (reads_lines || question_waits()) {
            readAndExecute(reads_lines ? ConsoleInput::Wake::waits : ConsoleInput::Wake::counts);
            continue;
        }
        if (input_.wait() == ConsoleInput::Event::stopped) running_.store(false);
    }
}

bool Console::readAndExecute(ConsoleInput::Wake wake) {
    const bool answering = question_waits();
    std::string line;
    switch (input_.readLine(answering ? std::string_view() : kPrompt,
                            answering ? kLongestAnswer : kLongestLine, wake, line)) {
        case ConsoleInput::Event::line:
            carry_out(line);
            return true;
        case ConsoleInput::Event::ended:
            input_ended_ = true;
            return false;
        case ConsoleInput::Event::stopped:
            running_.store(false);
            return false;
        case ConsoleInput::Event::woken:
            return false;
    }
    return false;
}

// What a command raises ends that command, and not the server.
void Console::carry_out(std::string_view line) {
    try {
        if (!answer(line)) execute(line);
    } catch (const kx_err& error) {
        current_output().printLine("Command failed: %s", error.message().c_str());
    } catch (const std::bad_alloc&) {
        current_output().printLine("Command failed: out of memory");
    }
}

void Console::execute(std::string_view line) {
    const std::string_view name = CommandLine(line).next();
    const auto command =
        name.empty() ? commands_.end() : std::ranges::find(commands_, name, &Command::name);
    if (command == commands_.end()) {
        unrecognized(line);
    } else {
        command->handler(line);
    }
}

void Console::addCommand(std::string_view name, Handler handler) {
    commands_.push_back({std::string(name), std::move(handler)});
}

void Console::unrecognized(std::string_view /*line*/) {
    current_output().printLine("Unrecognized command. type ? for help\n");
}

void Console::confirm(std::string_view question, std::function<void()> yes) {
    current_output().printLine("%.*s?(y or n): ", static_cast<int>(question.size()),
                               question.data());
    {
        const kx_guard hold(question_lock_);
        questions_.push_back(std::move(yes));
    }
    input_.wake();
}

bool Console::question_waits() const {
    const kx_guard hold(question_lock_);
    return !questions_.empty();
}

bool Console::answer(std::string_view line) {
    std::function<void()> yes;
    {
        const kx_guard hold(question_lock_);
        if (questions_.empty()) return false;
        yes = std::move(questions_.front());
        questions_.pop_front();
    }
    if (line.starts_with('y') || line.starts_with('Y')) yes();
    return true;
}

void Console::setRemoteCredentials(std::optional<std::string> name,
                                   std::optional<std::string> password) {
    const kx_guard hold(remote_lock_);
    remote_control_ = name && password;
    if (!remote_control_) name = password = "";
    credentials_ = {std::move(name), std::move(password)};
}

Console::Credentials Console::remoteCredentials() const {
    const kx_guard hold(remote_lock_);
    return credentials_;
}

RemoteConsole::Login Console::login(std::string_view name, std::string_view password,
                                    MessageReceiver& holder) {
    const kx_guard hold(remote_lock_);
    if (checkRemoteLogin(name, password) && takeOutput(holder)) return Login::good;
    return is_administrator(name, password) ? Login::busy : Login::wrong;
}

bool Console::checkRemoteLogin(std::string_view name, std::string_view password) const {
    return holder_ == nullptr && is_administrator(name, password);
}

bool Console::is_administrator(std::string_view name, std::string_view password) const {
    const bool same_name = same_text(name, credentials_.name);
    const bool same_password = same_text(password, credentials_.password);
    return remote_control_ && same_name && same_password;
}

bool Console::takeOutput(MessageReceiver& holder) {
    if (holder_ != nullptr) return false;
    holder_ = &holder;
    saved_ = &current_output();
    forwarding_.attach(holder, *saved_);
    set_current_output(&forwarding_);
    return true;
}

void Console::releaseOutput(MessageReceiver& holder) {
    const kx_guard hold(remote_lock_);
    if (holder_ == &holder) give_output_back();
}

void Console::give_output_back() {
    set_current_output(saved_);
    forwarding_.detach();
    holder_ = nullptr;
    saved_ = nullptr;
}

}  // namespace vorrim
