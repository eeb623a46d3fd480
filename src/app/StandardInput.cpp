#include "app/StandardInput.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <unistd.h>
#include <utility>

#include "app/Console.h"

namespace vorrim {

namespace {

constexpr std::size_t kChunk = 4096;

}  // namespace

StandardInput::StandardInput(StopSignal& stop_signal, int input, int output)
    : stop_signal_(stop_signal), input_(input), output_(output) {
    // A server in the background of a shell is not to be stopped by what is typed to the shell; its
    // reading fails instead.
    std::signal(SIGTTIN, SIG_IGN);
}

ConsoleInput::Event StandardInput::readLine(std::string_view prompt, std::size_t limit,
                                            std::string& line) {
    if (stop_signal_.signalled()) return Event::stopped;
    show(prompt);
    while (lines_.empty() && !ended_) {
        if (stop_signal_.waitReadable(input_) == StopSignal::Event::signalled)
            return Event::stopped;
        receive();
    }
    if (lines_.empty()) return Event::ended;
    line = std::move(lines_.front());
    lines_.pop_front();
    line.resize(std::min({line.size(), limit, line.find('\0')}));
    return Event::line;
}

ConsoleInput::Event StandardInput::wait() {
    return stop_signal_.wait() == StopSignal::Event::signalled ? Event::stopped : Event::woken;
}

// A full or vanished output costs the prompt, never a wait.
void StandardInput::show(std::string_view prompt) const noexcept {
    pollfd state{output_, POLLOUT, 0};
    if (prompt.empty() || ::poll(&state, 1, 0) != 1 || (state.revents & POLLOUT) == 0) return;
    [[maybe_unused]] const auto written = ::write(output_, prompt.data(), prompt.size());
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
