#pragma once
// A line typed at a terminal, with editing and history, while others print.
//
//     terminal ──► keys ──► the line being typed ──► readLine
//     print ─────► takes the line away, shows the text, puts the line back as it was
//
// The history lasts as long as the object and is written nowhere: passwords are among the commands.
//
// While a line is read the terminal is in a mode of the editor's. It gets back its own when the
// line is there, whatever ended it, and by restore_terminal where a process ends in between.
//
// Threads: readLine belongs to one thread; print and restore_terminal to any.

#include <cstdio>
#include <functional>
#include <histedit.h>
#include <locale.h>
#include <memory>
#include <string>
#include <string_view>
#include <wchar.h>

#include "base/Annotations.h"
#include "base/Screen.h"
#include "base/kx_critical_section.h"

namespace vorrim {

class LineEditor final {
public:
    enum class Event {
        line,
        ended,    // Ctrl-D on an empty line, or the terminal is gone
        stopped,  // by the wait
    };

    // Waits until `input` has something to read, or has ended: true. False gives the line up. It
    // may print meanwhile, and must not raise.
    using Wait = std::function<bool()>;

    // Whether the two descriptors are a terminal that can be edited on, by this process.
    [[nodiscard]] static bool possible(int input, int output) noexcept;

    // The terminal; the descriptors must outlive the editor. Raises kx_err when the terminal cannot
    // be had.
    LineEditor(int input, int output);
    ~LineEditor();
    LineEditor(const LineEditor&) = delete;
    LineEditor& operator=(const LineEditor&) = delete;

    // The line without its newline. A line that is given up is lost.
    [[nodiscard]] Event readLine(std::string_view prompt, const Wait& wait, std::string& line);

    // Shows a text at once, above the line that is being typed; for the rest as Screen::show.
    bool print(std::string_view text);

    // Puts a terminal on which a line is being read into the mode it had before. For a process that
    // is about to end without leaving readLine; may be called by a signal handler.
    static void restore_terminal() noexcept;

private:
    struct EndStream {
        void operator()(std::FILE* stream) const noexcept { std::fclose(stream); }
    };
    struct EndHistory {
        void operator()(History* history) const noexcept { history_end(history); }
    };
    struct EndEditor {
        void operator()(EditLine* editor) const noexcept { el_end(editor); }
    };

    static LineEditor& of(EditLine* editor) noexcept;
    static char* prompt_of(EditLine* editor) noexcept NO_THREAD_SAFETY_ANALYSIS;
    static int next_character(EditLine* editor, wchar_t* character);

    [[nodiscard]] int take_character(wchar_t& character) NO_THREAD_SAFETY_ANALYSIS;
    [[nodiscard]] bool more_input();
    void take_typed_ahead();
    void follow_size() REQUIRES(lock_);
    void take_line_away() REQUIRES(lock_);
    void remember(const char* line);

    const int input_;
    const Screen screen_;
    locale_t characters_;
    std::unique_ptr<std::FILE, EndStream> in_;
    std::unique_ptr<std::FILE, EndStream> out_;
    std::unique_ptr<History, EndHistory> history_;

    // The thread that reads holds it but for its waits, so that who prints finds the editor at
    // rest.
    kx_critical_section lock_;
    std::unique_ptr<EditLine, EndEditor> editor_ GUARDED_BY(lock_);
    bool reading_ GUARDED_BY(lock_) = false;
    std::string prompt_ GUARDED_BY(lock_);
    int columns_ GUARDED_BY(lock_) = 0;

    // The reading thread's own.
    const Wait* wait_ = nullptr;
    bool given_up_ = false;
    std::string typed_;  // bytes received and not yet used
    mbstate_t partial_{};
};

}  // namespace vorrim
