#pragma once
// The operator's lines from a descriptor, normally standard input.
//
//     descriptor ──► bytes ──► lines ──► readLine       a pipe: nothing is changed, nothing shown
//     terminal ────► line editor ──────► readLine       but the prompt
//     stop signal, wake ─────► the wait ends
//
// A descriptor that is closed, or that fails, has ended.
//
// Threads: as ConsoleInput.

#include <deque>
#include <string>
#include <string_view>

#include "app/ConsoleInput.h"
#include "app/OutputWriter.h"
#include "app/StopSignal.h"
#include "base/LineEditor.h"

namespace vorrim {

class StandardInput final : public ConsoleInput {
public:
    // Owns nothing of these, which must outlive the input. Prompts go to `output` as they are,
    // unless there is an editor, which shows them itself.
    StandardInput(StopSignal& stop_signal, int input, OutputWriter& output,
                  LineEditor* editor = nullptr);

    [[nodiscard]] Event readLine(std::string_view prompt, std::size_t limit, Wake wake,
                                 std::string& line) override;
    [[nodiscard]] Event wait() override;
    void wake() noexcept override { stop_signal_.wake(); }

private:
    [[nodiscard]] Event read_edited(std::string_view prompt, Wake wake, std::string& line);
    [[nodiscard]] Event read_plain(std::string_view prompt, Wake wake, std::string& line);
    [[nodiscard]] StopSignal::Event wait_for_input(Wake wake);
    void receive();
    void take(std::string_view bytes);

    StopSignal& stop_signal_;
    const int input_;
    OutputWriter& output_;
    LineEditor* const editor_;
    std::deque<std::string> lines_;  // complete and not yet handed on
    std::string begun_;              // the beginning of the next one, as far as it is kept
    bool has_begun_ = false;
    bool ended_ = false;
};

}  // namespace vorrim
