#include "base/LineEditor.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include "base/kx_err.h"

namespace vorrim {

namespace {

constexpr int kHistoryLines = 500;
constexpr std::size_t kRoom = 256;  // for the keys of one read
constexpr int kNoCharacter = 0;
constexpr int kOneCharacter = 1;
constexpr char kEnd = '\x04';  // of the input, as typed

// The mode to put back, while a line is being read; no locks, for signal handlers.
termios mode_before;
std::atomic<int> being_read{-1};

// The library takes and gives characters in the locale of the calling thread, and the server's own
// must stay as it is.
class Characters final {
public:
    explicit Characters(locale_t locale) noexcept : before_(::uselocale(locale)) {}
    ~Characters() { ::uselocale(before_); }
    Characters(const Characters&) = delete;
    Characters& operator=(const Characters&) = delete;

private:
    const locale_t before_;
};

// Where the cursor is behind a text that begins at `column`, in columns from the beginning of the
// first row, as the library shows it: a control character takes two, a tab as many as there are to
// the next stop of its row.
int column_behind(std::wstring_view text, int column, int columns_of_row) noexcept {
    constexpr int kControl = 2;
    constexpr int kTabStop = 8;
    for (const wchar_t character : text) {
        if (character == L'\t') {
            do
                ++column;
            while (column % columns_of_row % kTabStop != 0);
        } else {
            const int width = ::wcwidth(character);
            column += width < 0 ? kControl : width;
        }
    }
    return column;
}

}  // namespace

bool LineEditor::possible(int input, int output) noexcept {
    const char* const kind = std::getenv("TERM");
    const bool capable = kind != nullptr && *kind != '\0' && std::string_view(kind) != "dumb";
    // In the background of a shell the terminal's mode is the shell's.
    return capable && ::isatty(input) == 1 && ::isatty(output) == 1 &&
           ::tcgetpgrp(input) == ::getpgrp();
}

LineEditor::LineEditor(int input, int output)
    : input_(input),
      screen_(output),
      characters_(::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)),
      in_(::fdopen(::fcntl(input, F_DUPFD_CLOEXEC, 0), "r")),
      out_(::fdopen(::fcntl(screen_.descriptor(), F_DUPFD_CLOEXEC, 0), "w")) {
    history_.reset(history_init());
    if (!in_ || !out_ || !history_) kx_error("no terminal for the line editor");

    const Characters ours(characters_);
    const kx_guard hold(lock_);
    editor_.reset(el_init("vorrim", in_.get(), out_.get(), out_.get()));
    if (!editor_) kx_error("no terminal for the line editor");
    columns_ = screen_.columns();
    EditLine* const editor = editor_.get();
    el_set(editor, EL_CLIENTDATA, this);
    el_set(editor, EL_EDITOR, "emacs");
    el_set(editor, EL_SIGNAL, 0);
    el_set(editor, EL_PROMPT, &LineEditor::prompt_of);
    el_set(editor, EL_GETCFN, &LineEditor::next_character);
    HistEvent event{};
    history(history_.get(), &event, H_SETSIZE, kHistoryLines);
    history(history_.get(), &event, H_SETUNIQUE, 1);
    el_set(editor, EL_HIST, &history, history_.get());
    el_set(editor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    // Nothing is completed, and a tab separates the words of a command like a blank.
    el_set(editor, EL_BIND, "^I", "ed-insert", nullptr);
}

LineEditor::~LineEditor() {
    {
        const kx_guard hold(lock_);
        const Characters ours(characters_);
        editor_.reset();
    }
    if (characters_ != nullptr) ::freelocale(characters_);
}

LineEditor& LineEditor::of(EditLine* editor) noexcept {
    void* self = nullptr;
    el_get(editor, EL_CLIENTDATA, &self);
    return *static_cast<LineEditor*>(self);
}

char* LineEditor::prompt_of(EditLine* editor) noexcept {
    return of(editor).prompt_.data();
}

int LineEditor::next_character(EditLine* editor, wchar_t* character) {
    return of(editor).take_character(*character);
}

LineEditor::Event LineEditor::readLine(std::string_view prompt, const Wait& wait,
                                       std::string& line) {
    take_typed_ahead();
    const Characters ours(characters_);
    const kx_guard hold(lock_);
    wait_ = &wait;
    given_up_ = false;
    prompt_ = prompt;
    if (::tcgetattr(input_, &mode_before) == 0) being_read = input_;
    reading_ = true;
    int count = 0;
    const char* const typed = el_gets(editor_.get(), &count);
    reading_ = false;
    being_read = -1;
    if (typed == nullptr || count <= 0) {
        (void)screen_.control("\n");  // whatever comes next begins a line
        return given_up_ ? Event::stopped : Event::ended;
    }
    line.assign(typed, static_cast<std::size_t>(count));
    while (line.ends_with('\n') || line.ends_with('\r'))
        line.pop_back();
    remember(line.c_str());
    return Event::line;
}

void LineEditor::remember(const char* line) {
    HistEvent event{};
    if (*line != '\0') history(history_.get(), &event, H_ENTER, line);
}

// Called by the library in the middle of readLine, at a moment when the screen shows the line as it
// is: the one place where others may have the lock.
int LineEditor::take_character(wchar_t& character) {
    for (;;) {
        while (!typed_.empty()) {
            constexpr std::size_t kInvalid = static_cast<std::size_t>(-1);
            const bool begun = std::mbsinit(&partial_) == 0;
            const std::size_t taken = std::mbrtowc(&character, typed_.data(), 1, &partial_);
            if (taken == kInvalid) partial_ = {};
            // What breaks off a character may well begin another one.
            if (taken != kInvalid || !begun) typed_.erase(0, 1);
            if (taken > 1) continue;
            // What the terminal has kept of an end that was typed just before its mode changed.
            if (character == L'\0') character = kEnd;
            return kOneCharacter;
        }
        lock_.leave();
        const bool more = more_input();
        lock_.enter();
        follow_size();
        if (!more) return kNoCharacter;
    }
}

// While nobody reads a line the terminal is in its own mode, and in the editor's an end that was
// typed meanwhile would be no end any more.
void LineEditor::take_typed_ahead() {
    std::array<char, kRoom> room;
    for (pollfd keys{input_, POLLIN, 0}; ::poll(&keys, 1, 0) == 1;) {
        const ssize_t count = ::read(input_, room.data(), room.size());
        if (count > 0) {
            typed_.append(room.data(), static_cast<std::size_t>(count));
        } else {
            if (count == 0) typed_ += kEnd;
            return;
        }
    }
}

bool LineEditor::more_input() {
    if (!(*wait_)()) {
        given_up_ = true;
        return false;
    }
    std::array<char, kRoom> room;
    const ssize_t count = ::read(input_, room.data(), room.size());
    if (count < 0) return errno == EINTR || errno == EAGAIN;
    typed_.append(room.data(), static_cast<std::size_t>(count));
    return count > 0;
}

void LineEditor::follow_size() {
    const int columns = screen_.columns();
    if (columns == columns_) return;
    columns_ = columns;
    el_resize(editor_.get());
}

void LineEditor::take_line_away() {
    const LineInfoW* const typed = el_wline(editor_.get());
    const std::wstring_view before(typed->buffer, typed->cursor);
    const int prompt = static_cast<int>(prompt_.size());
    const int rows = column_behind(before, prompt, columns_) / columns_;
    std::string keys = "\r";
    if (rows > 0) keys += "\x1b[" + std::to_string(rows) + 'A';
    keys += "\x1b[J";
    (void)screen_.control(keys);
}

bool LineEditor::print(std::string_view text) {
    const Characters ours(characters_);
    const kx_guard hold(lock_);
    if (!reading_) return screen_.show(text);
    take_line_away();
    bool shown = screen_.show(text);
    if (!text.ends_with('\n')) shown = screen_.control("\n") && shown;
    follow_size();
    el_set(editor_.get(), EL_REFRESH);
    return shown;
}

void LineEditor::restore_terminal() noexcept {
    const int terminal = being_read.load();
    if (terminal >= 0) ::tcsetattr(terminal, TCSANOW, &mode_before);
}

}  // namespace vorrim
