#pragma once
// Another program than the server, run by a test: what it prints is caught, and it ends with the
// test.
//
// Ending  The destructor asks with SIGTERM and then kills, the program and whatever it has started.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

#include "tests/wire/harness/ScratchFolder.h"
#include "tests/wire/harness/Terminal.h"

namespace vorrim::wire {

// vorrim-cli with these words, for the server whose clients' port this is.
[[nodiscard]] std::vector<std::string> cli(std::vector<std::string> words, std::uint16_t port);

class Program final {
public:
    // Where a program of this name lies, or empty when it is not installed. Daemons lie in folders
    // that are not on everybody's path.
    [[nodiscard]] static std::string find(std::string_view name);

    // The program's path, then its arguments, and what it reads.
    explicit Program(std::vector<std::string> command, std::string_view input = "");
    // On a terminal, which then has what it prints.
    Program(std::vector<std::string> command, const Terminal& terminal);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // Waits for its end; the exit status, or minus the signal's number when a signal ended it.
    int exit();
    [[nodiscard]] bool running();
    void signal(int number) const;
    [[nodiscard]] std::string output() const { return captured_.read("output"); }
    [[nodiscard]] std::string errors() const { return captured_.read("errors"); }
    // Until standard output holds the text.
    void wait_for_output(std::string_view text) const;

private:
    void start(std::vector<std::string> command, const Terminal* terminal);

    ScratchFolder captured_;
    pid_t pid_ = -1;
    std::optional<int> exit_;
};

}  // namespace vorrim::wire
