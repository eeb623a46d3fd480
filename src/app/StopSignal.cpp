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
    woken_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (signal_ < 0 || woken_ < 0) kx_error("no descriptor for the stop signal");
}

StopSignal::~StopSignal() {
    ::close(signal_);
    ::close(woken_);
}

void StopSignal::wake() noexcept {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(woken_, &one, sizeof(one));
}

bool StopSignal::poll_with(int descriptor, int timeout_ms) {
    std::array<pollfd, 2> events{pollfd{signal_, POLLIN, 0}, pollfd{descriptor, POLLIN, 0}};
    if (::poll(events.data(), events.size(), timeout_ms) <= 0) return false;
    signalfd_siginfo received;
    if (::read(signal_, &received, sizeof(received)) > 0) signalled_ = true;
    return events[1].revents != 0;
}

StopSignal::Event StopSignal::waitReadable(int descriptor) {
    while (!signalled_) {
        if (poll_with(descriptor, -1) && !signalled_) return Event::readable;
    }
    return Event::signalled;
}

StopSignal::Event StopSignal::wait() {
    if (waitReadable(woken_) == Event::signalled) return Event::signalled;
    std::uint64_t count = 0;
    [[maybe_unused]] const auto drained = ::read(woken_, &count, sizeof(count));
    return Event::woken;
}

bool StopSignal::signalled() {
    constexpr int kNoDescriptor = -1;  // poll passes it over
    if (!signalled_) poll_with(kNoDescriptor, 0);
    return signalled_;
}

}  // namespace vorrim
