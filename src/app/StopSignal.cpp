#include "app/StopSignal.h"

#include <array>
#include <csignal>
#include <cstdint>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "base/kx_err.h"

namespace vorrim {

namespace {

bool is_ignored(int signal) noexcept {
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

StopSignal::StopSignal() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    // nohup asks to survive the terminal; without it the end of the terminal is a stop like others.
    if (!is_ignored(SIGHUP)) sigaddset(&signals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    signal_ = ::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    cleared_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (signal_ < 0 || cleared_ < 0) kx_error("no descriptor for the stop signal");
}

StopSignal::~StopSignal() {
    ::close(signal_);
    ::close(cleared_);
}

void StopSignal::clear() noexcept {
    running_ = false;
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(cleared_, &one, sizeof(one));
}

void StopSignal::wait() {
    std::array<pollfd, 2> events{pollfd{signal_, POLLIN, 0}, pollfd{cleared_, POLLIN, 0}};
    while (running_) {
        if (::poll(events.data(), events.size(), -1) <= 0) continue;
        signalfd_siginfo received;
        if (::read(signal_, &received, sizeof(received)) > 0) running_ = false;
    }
}

}  // namespace vorrim
