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

bool is_gone(int terminal) noexcept {
    pollfd state{terminal, 0, 0};
    return ::poll(&state, 1, 0) == 1 && (state.revents & POLLHUP) != 0;
}

sigset_t stop_signals() noexcept {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

void let_the_next_end_the_process(int /*signal*/ = 0) noexcept {
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
}

void let_through_stops() noexcept {
    const sigset_t signals = stop_signals();
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

}  // namespace

StopSignal::StopSignal(int terminal) : terminal_(::isatty(terminal) == 1 ? terminal : kNoTerminal) {
    sigset_t signals = stop_signals();
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

StopSignal::Ready StopSignal::poll_with(int descriptor, int waker, int timeout_ms) {
    std::array<pollfd, 3> events{pollfd{signal_, POLLIN, 0}, pollfd{descriptor, POLLIN, 0},
                                 pollfd{waker, POLLIN, 0}};
    if (::poll(events.data(), events.size(), timeout_ms) <= 0) return Ready::none;
    signalfd_siginfo received;
    while (!signalled_ && ::read(signal_, &received, sizeof(received)) > 0)
        receive(received.ssi_signo);
    if (events[1].revents != 0) return Ready::descriptor;
    return events[2].revents != 0 ? Ready::waker : Ready::none;
}

void StopSignal::receive(unsigned number) {
    if (number == SIGHUP && !is_gone(terminal_)) {
        hang_up_();
        return;
    }
    signalled_ = true;
    let_the_next_end_the_process();
    let_through_stops();
}

void StopSignal::endWaits() {
    if (signalled()) return;
    std::signal(SIGINT, &let_the_next_end_the_process);
    std::signal(SIGTERM, &let_the_next_end_the_process);
    let_through_stops();
}

StopSignal::Event StopSignal::wait_for(int descriptor, int waker) {
    while (!signalled_) {
        const Ready ready = poll_with(descriptor, waker, -1);
        if (signalled_ || ready == Ready::none) continue;
        if (ready == Ready::descriptor) return Event::readable;
        std::uint64_t count = 0;
        [[maybe_unused]] const auto drained = ::read(waker, &count, sizeof(count));
        return Event::woken;
    }
    return Event::signalled;
}

StopSignal::Event StopSignal::waitReadable(int descriptor) {
    return wait_for(descriptor, kNoDescriptor);
}

StopSignal::Event StopSignal::waitReadableOrWoken(int descriptor) {
    return wait_for(descriptor, woken_);
}

StopSignal::Event StopSignal::wait() {
    return wait_for(kNoDescriptor, woken_);
}

bool StopSignal::signalled() {
    if (!signalled_) poll_with(kNoDescriptor, kNoDescriptor, 0);
    return signalled_;
}

}  // namespace vorrim
