#pragma once
// The operator's lines from a descriptor, normally standard input. Nothing in them is changed and
// nothing is shown but the prompt, so that a pipe sees the console as it is.
//
//     descriptor ──► bytes ──► lines ──► readLine
//     stop signal, wake ─────► the wait ends
//
// A descriptor that is closed, or that fails, has ended.
//
// Threads: as ConsoleInput.

#include <deque>
#include <string>
#include <string_view>

#include "app/ConsoleInput.h"
#include "app/StopSignal.h"

namespace vorrim {

class StandardInput final : public ConsoleInput {
public:
    // Owns none of the three, which must outlive the input. Prompts go to `output` as they are.
    StandardInput(StopSignal& stop_signal, int input, int output);

    [[nodiscard]] Event readLine(std::string_view prompt, std::size_t limit,
                                 std::string& line) override;
    [[nodiscard]] Event wait() override;
    void wake() noexcept override { stop_signal_.wake(); }

private:
    void show(std::string_view prompt) const noexcept;
    void receive();
    void take(std::string_view bytes);

    StopSignal& stop_signal_;
    const int input_;
    const int output_;
    std::deque<std::string> lines_;  // complete and not yet handed on
    std::string begun_;              // the beginning of the next one, as far as it is kept
    bool has_begun_ = false;
    bool ended_ = false;
};

}  // namespace vorrim
