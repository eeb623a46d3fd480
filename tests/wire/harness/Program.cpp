#include "tests/wire/harness/Program.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/wire/harness/Bytes.h"

namespace vorrim::wire {

std::vector<std::string> cli(std::vector<std::string> words, std::uint16_t port) {
    words.insert(words.begin(), VORRIM_CLI_BINARY);
    words.insert(words.end(), {"--port", std::to_string(port)});
    return words;
}

void Program::start(std::vector<std::string> command, const Surroundings& in) {
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

Program::~Program() {
    if (pid_ < 0) return;
    try {
        stop(SIGTERM);
    } catch (const WireFailure&) {
        stop(SIGKILL);
    }
    ::kill(-pid_, SIGKILL);  // what it has left behind, if anything
}

bool Program::running() {
    int status = 0;
    if (!exit_ && ::waitpid(pid_, &status, WNOHANG) == pid_)
        exit_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return !exit_;
}

void Program::signal(int number) const {
    ::kill(pid_, number);
}

int Program::exit() {
    wait_until("a program ends", [this] { return !running(); });
    return *exit_;
}

int Program::stop(int number) {
    if (running()) signal(number);
    return exit();
}

void Program::wait_for_output(std::string_view text) const {
    wait_until(text, [&] { return output().find(text) != std::string::npos; });
}

}  // namespace vorrim::wire
