#include "app/StandardInput.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <unistd.h>
#include <utility>

#include "app/Console.h"

namespace vorrim {

namespace {

constexpr std::size_t kChunk = 4096;
constexpr std::chrono::milliseconds kPromptPatience{100};

}  // namespace

StandardInput::StandardInput(StopSignal& stop_signal, int input, OutputWriter& output,
                             LineEditor* editor)
    : stop_signal_(stop_signal), input_(input), output_(output), editor_(editor) {
    // A server in the background of a shell is not to be stopped by what is typed to the shell, nor
    // by what it prints itself; its reading fails instead.
    std::signal(SIGTTIN, SIG_IGN);
    std::signal(SIGTTOU, SIG_IGN);
}

ConsoleInput::Event StandardInput::readLine(std::string_view prompt, std::size_t limit, Wake wake,
                                            std::string& line) {
    if (stop_signal_.signalled()) return Event::stopped;
    const Event event = editor_ != nullptr && !ended_ ? read_edited(prompt, wake, line)
                                                      : read_plain(prompt, wake, line);
    if (event == Event::line) line.resize(std::min({line.size(), limit, line.find('\0')}));
    return event;
}

StopSignal::Event StandardInput::wait_for_input(Wake wake) {
    return wake == Wake::counts ? stop_signal_.waitReadableOrWoken(input_)
                                : stop_signal_.waitReadable(input_);
}

ConsoleInput::Event StandardInput::read_edited(std::string_view prompt, Wake wake,
                                               std::string& line) {
    // What the last command has printed comes first, or the prompt would be shown twice.
    output_.flush(kPromptPatience);
    const auto wait = [&] { return wait_for_input(wake) == StopSignal::Event::readable; };
    switch (editor_->readLine(prompt, wait, line)) {
        case LineEditor::Event::line:
            return Event::line;
        case LineEditor::Event::stopped:
            return stop_signal_.signalled() ? Event::stopped : Event::woken;
        case LineEditor::Event::ended:
            break;
    }
    ended_ = true;
    return Event::ended;
}

ConsoleInput::Event StandardInput::read_plain(std::string_view prompt, Wake wake,
                                              std::string& line) {
    output_.print(prompt);
    while (lines_.empty() && !ended_) {
        switch (wait_for_input(wake)) {
            case StopSignal::Event::signalled:
                return Event::stopped;
            case StopSignal::Event::woken:
                return Event::woken;
            case StopSignal::Event::readable:
                receive();
        }
    }
    if (lines_.empty()) return Event::ended;
    line = std::move(lines_.front());
    lines_.pop_front();
    return Event::line;
}

ConsoleInput::Event StandardInput::wait() {
    return stop_signal_.wait() == StopSignal::Event::signalled ? Event::stopped : Event::woken;
}

void StandardInput::receive() {
    std::array<char, kChunk> room;
    const ssize_t count = ::read(input_, room.data(), room.size());
    if (count > 0) {
        take({room.data(), static_cast<std::size_t>(count)});
    } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
        ended_ = true;
        if (std::exchange(has_begun_, false)) lines_.push_back(std::move(begun_));
    }
}

void StandardInput::take(std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t end = bytes.find('\n');
        const std::string_view part = bytes.substr(0, end);
        begun_ += part.substr(0, Console::kLongestLine - begun_.size());
        has_begun_ = true;
        if (end == std::string_view::npos) return;
        lines_.push_back(std::move(begun_));
        begun_.clear();
        has_begun_ = false;
        bytes.remove_prefix(end + 1);
    }
}

}  // namespace vorrim
