#pragma once
// A terminal with a person before it: what a program shows on it, and what is typed.

#include <string>
#include <string_view>

#include "tests/wire/harness/Socket.h"

namespace vorrim::wire {

class Terminal final {
public:
    Terminal();

    // In the child of a fork: a session of its own, with this as its terminal, as standard input,
    // output and error. Safe after a fork.
    void take() const;

    void type(std::string_view keys) const;
    // Everything shown so far, with the terminal's control sequences.
    [[nodiscard]] const std::string& shown();
    // Until the text is shown behind what earlier waits have found.
    void wait_for(std::string_view text);
    // Whether it hands over whole lines and echoes, as it did before anybody took it.
    [[nodiscard]] bool as_it_was() const;
    // Hangs up.
    void close();

private:
    Socket person_;
    Socket program_;  // kept open, so that the terminal outlives its program
    std::string shown_;
    std::size_t found_ = 0;
};

}  // namespace vorrim::wire
