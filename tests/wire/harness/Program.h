#pragma once
// A program run by a test: what it prints is caught, and it ends with the test.
//
// Ending  The destructor asks with SIGTERM and then kills, the program and whatever it has started.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

#include "tests/ScratchFolder.h"
#include "tests/wire/harness/Terminal.h"

namespace vorrim::wire {

// vorrim-cli with these words, for the server whose clients' port this is.
[[nodiscard]] std::vector<std::string> cli(std::vector<std::string> words, std::uint16_t port);

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
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    [[nodiscard]] pid_t pid() const { return pid_; }
    [[nodiscard]] bool running();
    void signal(int number) const;
    // Wait for its end; the exit status, or minus the signal's number when a signal ended it.
    int exit();
    int stop(int signal);

    [[nodiscard]] std::string output() const { return captured_.read("output"); }
    [[nodiscard]] std::string errors() const { return captured_.read("errors"); }
    // Until standard output holds the text.
    void wait_for_output(std::string_view text) const;

protected:
    Program() = default;  // `start` follows
    void start(std::vector<std::string> command, const Surroundings& in);
    [[nodiscard]] bool end_seen() const { return exit_.has_value(); }

private:
    ScratchFolder captured_;
    pid_t pid_ = -1;
    std::optional<int> exit_;
};

}  // namespace vorrim::wire
