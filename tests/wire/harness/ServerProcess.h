#pragma once
// The real server program, started in a scratch folder of its own on ports of its own.
//
//     the test ── vorrim.ini ──► scratch folder ◄── log, vorrim.log ── vorrim
//              ── SIGTERM, SIGKILL ──────────────────────────────────►
//              ◄── standard output, standard error, exit status ──────
//
// Which   The one of this build, or the one that VORRIM_SERVER names: a sanitizer's, say.
// Ending  The destructor stops the server with SIGTERM and makes the test fail when it had died
//         before, does not stop, leaves with another status than 1, or a sanitizer spoke up.
// Ports   Three free ones, kept apart from those of tests that run at the same time.

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/resource.h>

#include "tests/wire/harness/Program.h"

namespace vorrim::wire {

// A port P for clients such that P (TCP), P + 2 (TCP, administration) and P + 4 (UDP) are free.
// While the object lives no other test takes them.
class PortBlock final {
public:
    PortBlock();
    explicit PortBlock(std::uint16_t client_port) : client_(client_port) {}  // as it is, unclaimed

    [[nodiscard]] std::uint16_t client() const { return client_; }
    [[nodiscard]] std::uint16_t admin() const { return static_cast<std::uint16_t>(client_ + 2); }
    [[nodiscard]] std::uint16_t udp() const { return static_cast<std::uint16_t>(client_ + 4); }

private:
    std::uint16_t client_ = 0;
    Socket claim_;  // of the last port of the block
};

struct Status {
    std::uint32_t users = 0;
    std::uint32_t files = 0;
    bool operator==(const Status&) const = default;
};

class ServerProcess final : public Program {
public:
    enum class Input { open, at_its_end, missing };  // standard input
    enum class Ready {
        prompting,  // the console waits for its first command: nothing comes of itself any more
        answering,  // a status datagram is answered; for a console that is off
        accepting,  // a TCP connection is made
        at_once     // nothing is waited for
    };

    struct Setup {
        // Lines of section "server", before the ports and thisIP=127.0.0.1: the first of two
        // counts.
        std::string settings{};
        bool with_ini = true;
        Input input = Input::open;
        Terminal* terminal = nullptr;  // instead of standard input, output and error
        // What it may use of something, now and at the most.
        std::optional<std::pair<__rlimit_resource_t, rlimit>> limit{};
        Ready ready = Ready::prompting;
        std::shared_ptr<ScratchFolder> folder{};  // one of an earlier run; by default a new one
        std::shared_ptr<PortBlock> ports{};       // likewise
    };

    explicit ServerProcess(std::string_view settings = "")
        : ServerProcess(Setup{.settings = std::string(settings)}) {}
    explicit ServerProcess(const Setup& setup);
    ~ServerProcess();

    [[nodiscard]] const PortBlock& ports() const { return *ports_; }
    [[nodiscard]] const std::shared_ptr<ScratchFolder>& folder() const { return folder_; }

    // On the server's standard input, as it stands; then its end.
    void type(std::string_view text) const;
    void end_input() { standard_input_.close(); }

    // By a status datagram.
    [[nodiscard]] Status status() const;
    void wait_for_status(const Status& wanted) const;
    void wait_for_users(std::uint32_t wanted) const;

    // Until none of its threads runs from one look to the next, a moment later: a thread that turns
    // round and round or wakes all the time never lets that happen, a busy machine only later.
    void wait_until_idle() const;

private:
    void start_server(const Setup& setup);

    std::shared_ptr<PortBlock> ports_;
    std::shared_ptr<ScratchFolder> folder_;
    Socket standard_input_;  // the end that the server does not read from
};

}  // namespace vorrim::wire
