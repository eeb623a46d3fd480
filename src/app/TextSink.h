#pragma once
// Where texts end up: a file, a pipe, a terminal.
//
// Threads: one at a time.

#include <memory>
#include <string>
#include <string_view>

#include "base/LineEditor.h"
#include "base/Screen.h"
#include "platform/Descriptor.h"

namespace vorrim {

class TextSink {
public:
    enum class Taken { all, later, failed };

    virtual ~TextSink() = default;

    // To be waited for until it has room.
    [[nodiscard]] virtual int descriptor() const noexcept = 0;
    // Removes from the text what was taken. `later`: there is no room for the rest now; `failed`:
    // the rest is lost. Whatever else it is, it is no wait for somebody who does not read.
    [[nodiscard]] virtual Taken write(std::string_view& text) noexcept = 0;
};

// Bytes as they are.
class FileSink final : public TextSink {
public:
    // Takes the descriptor over.
    explicit FileSink(int descriptor) noexcept;

    // A file for appending, made when it is missing; null when it cannot be opened.
    [[nodiscard]] static std::unique_ptr<TextSink> for_log(const std::string& name);
    // A pipe, a file, a socket; the descriptor stays the caller's.
    [[nodiscard]] static std::unique_ptr<TextSink> for_console(int descriptor);

    [[nodiscard]] int descriptor() const noexcept override { return descriptor_.get(); }
    [[nodiscard]] Taken write(std::string_view& text) noexcept override;

private:
    const Descriptor descriptor_;
    const bool is_socket_;
};

// A terminal. With an editor, which must outlive the sink, texts appear above the line that is
// being typed.
class TerminalSink final : public TextSink {
public:
    TerminalSink(int terminal, LineEditor* editor) : screen_(terminal), editor_(editor) {}

    [[nodiscard]] int descriptor() const noexcept override { return screen_.descriptor(); }
    [[nodiscard]] Taken write(std::string_view& text) noexcept override;

private:
    Screen screen_;
    LineEditor* const editor_;
};

// The sink that fits what the descriptor is.
[[nodiscard]] std::unique_ptr<TextSink> console_sink(int descriptor, LineEditor* editor = nullptr);

}  // namespace vorrim
