#include "base/kx_debug_console.h"

#include <cstdio>
#include <string_view>
#include <unistd.h>

#include "base/file/kx_stdio_file.h"
#include "platform/debugger_channel.h"

namespace vorrim {

namespace {

std::atomic<kx_file*> debug_stream{nullptr};

void send(std::string_view piece, bool console_mode) noexcept {
    piece = piece.substr(0, piece.find('\0'));
    if (console_mode) {
        std::fwrite(piece.data(), 1, piece.size(), stdout);
    } else {
        debugger_print(piece);
    }
}

}  // namespace

std::int32_t kx_debug_console::read(void* buffer, std::uint32_t count) {
    const ssize_t got = ::read(STDIN_FILENO, buffer, count);
    return got > 0 ? static_cast<std::int32_t>(got) : 0;
}

std::int32_t kx_debug_console::write(const void* bytes, std::uint32_t count) {
    const std::string_view text(static_cast<const char*>(bytes), count);
    const bool console_mode = console_mode_.load();
    if (text.size() <= kLongestPiece) {
        send(text, console_mode);
    } else {
        for (std::size_t i = 0; i < text.size(); ++i)
            send(text.substr(i, 1), console_mode);
    }
    return static_cast<std::int32_t>(count);
}

std::uint32_t kx_debug_console::seek(std::uint32_t /*position*/) {
    return 0;
}

kx_debug_console& debug_console() noexcept {
    static kx_debug_console console;
    return console;
}

kx_file& kx_debug_stream() noexcept {
    static kx_stdio_file standard;
    kx_file* const stream = debug_stream.load();
    return stream != nullptr ? *stream : standard;
}

void kx_set_debug_stream(kx_file* stream) noexcept {
    debug_stream.store(stream);
}

}  // namespace vorrim
