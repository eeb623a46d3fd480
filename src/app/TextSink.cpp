#include "app/TextSink.h"

#include <cerrno>
#include <fcntl.h>
#include <new>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vorrim {

namespace {

constexpr mode_t kLogMode = 0640;  // an administrator's password may stand in it

// What a descriptor is, in the bits of S_IFMT; 0 when it is none.
mode_t kind_of(int descriptor) noexcept {
    struct stat state {};
    return ::fstat(descriptor, &state) == 0 ? state.st_mode & S_IFMT : 0;
}

}  // namespace

FileSink::FileSink(int descriptor) noexcept
    : descriptor_(descriptor), is_socket_(kind_of(descriptor) == S_IFSOCK) {}

std::unique_ptr<TextSink> FileSink::for_log(const std::string& name) {
    const int log =
        ::open(name.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK, kLogMode);
    if (log < 0) return nullptr;
    return std::make_unique<FileSink>(log);
}

std::unique_ptr<TextSink> FileSink::for_console(int descriptor) {
    int own = -1;
    // A pipe that is shared would make who writes wait. Of a file, another description would begin
    // at its start.
    if (kind_of(descriptor) == S_IFIFO) {
        const std::string name = "/proc/self/fd/" + std::to_string(descriptor);
        own = ::open(name.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    }
    if (own < 0) own = ::fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
    if (own < 0) return nullptr;
    return std::make_unique<FileSink>(own);
}

TextSink::Taken FileSink::write(std::string_view& text) noexcept {
    const ssize_t count = is_socket_ ? ::send(descriptor_.get(), text.data(), text.size(),
                                              MSG_DONTWAIT | MSG_NOSIGNAL)
                                     : ::write(descriptor_.get(), text.data(), text.size());
    if (count < 0) return errno == EAGAIN || errno == EINTR ? Taken::later : Taken::failed;
    text.remove_prefix(static_cast<std::size_t>(count));
    return text.empty() ? Taken::all : Taken::later;
}

TextSink::Taken TerminalSink::write(std::string_view& text) noexcept {
    pollfd room{descriptor(), POLLOUT, 0};
    if (::poll(&room, 1, 0) == 0) return Taken::later;
    try {
        const bool shown = editor_ != nullptr ? editor_->print(text) : screen_.show(text);
        return shown ? Taken::all : Taken::failed;
    } catch (const std::bad_alloc&) {
        return Taken::failed;
    }
}

std::unique_ptr<TextSink> console_sink(int descriptor, LineEditor* editor) {
    if (::isatty(descriptor) == 1) return std::make_unique<TerminalSink>(descriptor, editor);
    return FileSink::for_console(descriptor);
}

}  // namespace vorrim
