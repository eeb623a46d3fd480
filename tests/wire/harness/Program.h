#pragma once
// A program run by a test: what it prints is caught, and it ends with the test.
//
// Ending  The destructor asks with SIGTERM and then kills, the program and whatever it has started.

#include <optional>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include "tests/ScratchFolder.h"
#include "tests/wire/harness/Terminal.h"

namespace vorrim::wire {

// vorrim-cli with these words, for the server whose clients' port this is.
[[nodiscard]] inline std::vector<std::string> cli(std::vector<std::string> words,
                                                  std::uint16_t port) {
    words.insert(words.begin(), VORRIM_CLI_BINARY);
    words.insert(words.end(), {"--port", std::to_string(port)});
    return words;
}

class Program {
public:
    struct Surroundings {
        std::string input{};                 // the file that it reads
        const Terminal* terminal = nullptr;  // instead of standard input, output and error
        // In the child, right before the program: only what is safe after a fork.
        std::function<void()> prepare{};
    };

    // The program's path, then its arguments.
    explicit Program(std::vector<std::string> command) : Program(std::move(command), {}) {}
    Program(std::vector<std::string> command, const Surroundings& in) {
        start(std::move(command), in);
    }
    ~Program() {
        if (pid_ < 0) return;
        try {
            stop(SIGTERM);
        } catch (const WireFailure&) {
            stop(SIGKILL);
        }
        ::kill(-pid_, SIGKILL);  // what it has left behind, if anything
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    [[nodiscard]] pid_t pid() const { return pid_; }
    [[nodiscard]] bool running() {
        int status = 0;
        if (!exit_ && ::waitpid(pid_, &status, WNOHANG) == pid_)
            exit_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
        return !exit_;
    }
    void signal(int number) const { ::kill(pid_, number); }
    // Wait for its end; the exit status, or minus the signal's number when a signal ended it.
    int exit() {
        wait_until("a program ends", [this] { return !running(); });
        return *exit_;
    }
    int stop(int number) {
        if (running()) signal(number);
        return exit();
    }

    [[nodiscard]] std::string output() const { return captured_.read("output"); }
    [[nodiscard]] std::string errors() const { return captured_.read("errors"); }
    // Until standard output holds the text.
    void wait_for_output(std::string_view text) const {
        wait_until(text, [&] { return output().find(text) != std::string::npos; });
    }

protected:
    Program() = default;  // `start` follows
    void start(std::vector<std::string> command, const Surroundings& in) {
        std::vector<char*> arguments;
        for (std::string& word : command)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        captured_.write("input", in.input);
        const std::string input = (captured_.path() / "input").string();
        const std::string output = (captured_.path() / "output").string();
        const std::string errors = (captured_.path() / "errors").string();
        const pid_t parent = ::getpid();

        pid_ = ::fork();
        if (pid_ == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (::getppid() != parent) ::_exit(126);
            if (in.terminal != nullptr) {
                in.terminal->take();
            } else {
                ::setpgid(0, 0);
                const int flags = O_WRONLY | O_CREAT | O_APPEND;
                ::dup2(::open(input.c_str(), O_RDONLY), 0);
                ::dup2(::open(output.c_str(), flags, 0600), 1);
                ::dup2(::open(errors.c_str(), flags, 0600), 2);
            }
            if (in.prepare) in.prepare();
            ::execv(arguments[0], arguments.data());
            ::_exit(127);
        }
        if (pid_ < 0) throw WireFailure("no process");
        if (in.terminal == nullptr)
            ::setpgid(pid_, pid_);  // on both sides, so that it is done whoever comes first
    }
    [[nodiscard]] bool end_seen() const { return exit_.has_value(); }

private:
    ScratchFolder captured_;
    pid_t pid_ = -1;
    std::optional<int> exit_;
};

}  // namespace vorrim::wire
