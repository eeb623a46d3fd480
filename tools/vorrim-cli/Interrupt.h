#pragma once
// Ctrl-C as something to wait for.
//
// While one lives, SIGINT and SIGTERM no longer end the process: they make `handle` readable. Made
// before any thread is started, since threads inherit what is blocked.

#include <signal.h>

namespace vorrim::cli {

class Interrupt {
public:
    Interrupt();
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    // To be polled together with sockets; readable from the first signal on.
    [[nodiscard]] int handle() const noexcept { return handle_; }
    [[nodiscard]] bool pending() const noexcept;

private:
    int handle_ = -1;
    sigset_t before_{};
};

}  // namespace vorrim::cli
