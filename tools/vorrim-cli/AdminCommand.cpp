// Administration from afar: one command, a terminal's, or a pipe's.

#include <array>
#include <exception>
#include <optional>
#include <poll.h>
#include <unistd.h>

#include "AdminSession.h"
#include "Commands.h"
#include "Conversation.h"
#include "Interrupt.h"
#include "Text.h"
#include "base/LineEditor.h"

namespace vorrim::cli {

namespace {

constexpr int kInput = STDIN_FILENO;
constexpr int kOutput = STDOUT_FILENO;
constexpr std::string_view kBlanks = " ,\t";  // between the words of a command

std::string joined(const std::vector<std::string>& words) {
    std::string line;
    for (const std::string& word : words)
        line += (line.empty() ? "" : " ") + word;
    return line;
}

// On a terminal the texts must not steer it; a file gets them as they are.
void show(const Context& context, const std::string& text) {
    print_line(context.terminal.output_is_terminal() ? printable_lines(text) : text);
}

// What the wait for the next line came to.
enum class Woken { input, signal };

constexpr int kNothing = -1;  // an input that has nothing to say

// The texts of the server are shown meanwhile.
Woken wait_for_input(AdminSession& session, const Interrupt& interrupt, int input) {
    for (;;) {
        std::array<pollfd, 3> watched = {pollfd{interrupt.handle(), POLLIN, 0},
                                         pollfd{session.handle(), POLLIN, 0},
                                         pollfd{input, POLLIN, 0}};
        if (::poll(watched.data(), watched.size(), -1) < 0) continue;
        if (watched[0].revents != 0) return Woken::signal;
        if (watched[1].revents != 0) session.handle_arrived();
        if (watched[2].revents != 0) return Woken::input;
    }
}

[[noreturn]] void fail_unknown(const std::string& line) {
    throw Failure("the server does not know this command: " + printable(line));
}

// The one command that asks back asks somebody else.
void point_out_the_answer(const Context& context, std::string_view line) {
    const std::size_t begin = line.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) return;
    line.remove_prefix(begin);
    if (line.substr(0, line.find_first_of(kBlanks)) == "q")
        print_aside(context,
                    "(the answer is read at the server's own console; --stop stops it from here)");
}

// Lines as they come; the last one counts without its end, too.
class PipeLines {
public:
    // False at the end of the input.
    [[nodiscard]] bool receive() {
        std::array<char, 4096> room;
        const ssize_t count = ::read(kInput, room.data(), room.size());
        if (count <= 0) {
            if (!begun_.empty()) begun_ += '\n';
            return false;
        }
        begun_.append(room.data(), static_cast<std::size_t>(count));
        return true;
    }
    [[nodiscard]] std::optional<std::string> next() {
        const std::size_t end = begun_.find('\n');
        if (end == std::string::npos) return std::nullopt;
        std::string line = begun_.substr(0, end);
        begun_.erase(0, end + 1);
        return line;
    }

private:
    std::string begun_;
};

Outcome run_pipe(AdminSession& session, const Interrupt& interrupt) {
    PipeLines lines;
    for (bool more = true; more;) {
        if (wait_for_input(session, interrupt, kInput) == Woken::signal) return Outcome::found;
        more = lines.receive();
        while (const auto line = lines.next()) {
            const AdminSession::Reply reply = session.run(*line);
            if (reply == AdminSession::Reply::unknown_command) fail_unknown(*line);
            if (reply == AdminSession::Reply::interrupted) return Outcome::found;
        }
    }
    return Outcome::found;
}

Outcome run_terminal(const Context& context, AdminSession& session, const Interrupt& interrupt,
                     LineEditor& editor) {
    const std::string prompt = printable(context.options.host) + "> ";
    std::exception_ptr failure;  // must not fly through the editor's library
    const LineEditor::Wait wait = [&] {
        try {
            return wait_for_input(session, interrupt, kInput) == Woken::input;
        } catch (...) {
            failure = std::current_exception();
            return false;
        }
    };
    std::string line;
    while (editor.readLine(prompt, wait, line) == LineEditor::Event::line) {
        const bool nothing = line.find_first_not_of(kBlanks) == std::string::npos;
        if (!nothing && session.run(line) == AdminSession::Reply::interrupted) break;
        point_out_the_answer(context, line);
    }
    if (failure) std::rethrow_exception(failure);
    return Outcome::found;
}

Outcome run_command(const Context& context, AdminSession& session, const std::string& line,
                    const std::vector<std::string>& texts) {
    const AdminSession::Reply reply = session.run(line);
    if (reply == AdminSession::Reply::unknown_command) fail_unknown(line);
    point_out_the_answer(context, line);
    if (context.options.json) {
        print_json(
            {{"command", "admin"},
             {"server", context.options.host + ':' + std::to_string(context.options.admin_port)},
             {"line", line},
             {"reply", texts}});
    }
    return reply == AdminSession::Reply::complete ? Outcome::found : Outcome::error;
}

Outcome administer(const Context& context, const AdminAccount& account,
                   const Interrupt& interrupt) {
    const Options& options = context.options;
    std::optional<LineEditor> editor;
    std::vector<std::string> texts;
    AdminSession session(context, account, interrupt, [&](const std::string& text) {
        if (options.json) {
            texts.push_back(text);
        } else if (editor) {
            editor->print(text + '\n');
        } else {
            show(context, text);
        }
    });
    if (options.stop) {
        if (!session.stop()) throw Failure("interrupted; the server may still stop");
        return Outcome::found;
    }
    Outcome outcome = Outcome::found;
    if (!options.words.empty())
        outcome = run_command(context, session, joined(options.words), texts);
    if (options.watch) {
        (void)wait_for_input(session, interrupt, kNothing);
        outcome = Outcome::found;
    } else if (options.words.empty() && LineEditor::possible(kInput, kOutput)) {
        editor.emplace(kInput, kOutput);
        outcome = run_terminal(context, session, interrupt, *editor);
    } else if (options.words.empty()) {
        outcome = run_pipe(session, interrupt);
    }
    session.leave();
    return outcome;
}

}  // namespace

Outcome run_admin(const Context& context) {
    const Options& options = context.options;
    if (options.udp) throw Failure("administration needs a connection: leave out --udp");
    if (options.json && (options.words.empty() || options.watch))
        throw Failure("--json is for one command that ends");
    const Interrupt interrupt;
    const AdminAccount account = admin_account(context, interrupt);
    try {
        return administer(context, account, interrupt);
    } catch (const Closed&) {
        // What it printed last explains nothing here.
        throw Failure("the server closed the connection");
    }
}

}  // namespace vorrim::cli
