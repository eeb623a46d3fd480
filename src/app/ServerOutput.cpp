#include "app/ServerOutput.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "base/FormattedText.h"

namespace vorrim {

namespace {

constexpr mode_t kLogMode = 0644;

void write_once(int descriptor, std::string_view text) noexcept {
    // Nobody could be told of a failure but by a message.
    [[maybe_unused]] const auto written = ::write(descriptor, text.data(), text.size());
}

bool takes_more(int descriptor) noexcept {
    pollfd state{descriptor, POLLOUT, 0};
    return ::poll(&state, 1, 0) == 1 && (state.revents & POLLOUT) != 0;
}

}  // namespace

ServerOutput::ServerOutput(const ServerSettings& settings, const std::string& log_name, int console)
    : settings_(settings),
      log_(
          ::open(log_name.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK, kLogMode)),
      console_(console) {}

ServerOutput::~ServerOutput() {
    if (log_ >= 0) ::close(log_);
}

void ServerOutput::vprintLine(const char* format, va_list arguments) {
    FormattedText<kLineBuffer> text(format, arguments);
    text.end_line();
    write(text.view());
}

void ServerOutput::vprintError(const char* format, va_list arguments) {
    write(FormattedText<kLineBuffer>(format, arguments).view());
}

void ServerOutput::vprintVerbose(const char* format, va_list arguments) {
    if (verbose()) write(FormattedText<kLineBuffer>(format, arguments).view());
}

void ServerOutput::vprintLocked(const char* format, va_list arguments) {
    const kx_guard hold(lock_);
    write(FormattedText<kLockedBuffer>(format, arguments).view());
}

void ServerOutput::log(std::string_view text) noexcept {
    if (settings_.logFile && log_ >= 0) write_once(log_, text);
}

void ServerOutput::write(std::string_view text) noexcept {
    log(text);
    if (settings_.console) show(text);
}

void ServerOutput::show(std::string_view text) noexcept {
    if (!takes_more(console_)) {
        missed_.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    if (missed_.load(std::memory_order_relaxed) != 0) {
        std::array<char, 80> notice;
        const int length =
            std::snprintf(notice.data(), notice.size(),
                          "(the console was full: %u messages are missing)\n", missed_.exchange(0));
        if (length > 0) write_once(console_, {notice.data(), static_cast<std::size_t>(length)});
    }
    write_once(console_, text);
}

}  // namespace vorrim
