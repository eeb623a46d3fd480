#include "Interrupt.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "Failure.h"

namespace vorrim::cli {

Interrupt::Interrupt() {
    sigset_t watched;
    ::sigemptyset(&watched);
    ::sigaddset(&watched, SIGINT);
    ::sigaddset(&watched, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &watched, &before_);
    handle_ = ::signalfd(-1, &watched, SFD_CLOEXEC | SFD_NONBLOCK);
    if (handle_ < 0) throw Failure("the system has no descriptor left");
}

Interrupt::~Interrupt() {
    // A signal that is still pending would end the process now; it has been obeyed already.
    signalfd_siginfo taken;
    while (::read(handle_, &taken, sizeof taken) > 0) {
    }
    ::close(handle_);
    ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

bool Interrupt::pending() const noexcept {
    pollfd watched{handle_, POLLIN, 0};
    return ::poll(&watched, 1, 0) > 0;
}

}  // namespace vorrim::cli
