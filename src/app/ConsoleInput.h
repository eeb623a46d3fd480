#pragma once
// Where the operator's lines come from: a terminal, a pipe, a test.
//
// Threads: `readLine` and `wait` belong to the thread that runs the console; `wake` to any.

#include <cstddef>
#include <string>
#include <string_view>

namespace vorrim {

class ConsoleInput {
public:
    enum class Event {
        line,
        ended,    // there will be no further line
        stopped,  // the process has been told to end; so it is with every later call
        woken,    // by wake
    };

    virtual ~ConsoleInput() = default;

    // Whether a wake ends the wait for a line.
    enum class Wake { counts, waits };

    // Shows the prompt and waits for the next line: `line`, `ended` or `stopped`, or `woken` if
    // that counts. The line comes without its newline and ends at its first NUL; what it has beyond
    // `limit` bytes is dropped, so that the rest of a long text never runs as a command. The last
    // line counts without a newline, too.
    [[nodiscard]] virtual Event readLine(std::string_view prompt, std::size_t limit, Wake wake,
                                         std::string& line) = 0;
    // Waits without reading: `woken` or `stopped`. A wake that came before the call counts.
    [[nodiscard]] virtual Event wait() = 0;
    virtual void wake() noexcept = 0;
};

}  // namespace vorrim
