#pragma once
// A connection to the administration port of a server.
//
//     login ──► server ──► texts: everything that the server prints from now on
//     a command line ──► the texts of its reply, among those of others
//     a question whose answer nobody else can have ──► its answer: the reply is complete
//
// Replies have no end of their own. But commands run in order, so each is followed by
// `ip NUMBER` with a random address, which only has the server print that address: what comes
// before it is the reply.
//
// Threads: one. Errors: as Session.

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

#include "AdminAccount.h"
#include "Interrupt.h"
#include "Session.h"
#include "base/Random.h"

namespace vorrim::cli {

class AdminSession {
public:
    // Logs in; every text of the server but those that this class has asked for goes to `show`, as
    // one line or several, without the last line's end. A server that has seen wrong passwords may
    // take its time.
    AdminSession(const Context& context, const AdminAccount& account, const Interrupt& interrupt,
                 std::function<void(const std::string& text)> show);

    enum class Reply { complete, unknown_command, interrupted };
    // Runs a command line and waits until its reply is complete.
    [[nodiscard]] Reply run(std::string_view line);
    // Asks the server to stop and waits until it has closed the connection; false when a signal
    // comes first.
    [[nodiscard]] bool stop();

    // Says good-bye and waits until the server has closed the connection, so that it lets the next
    // administrator in. Nothing is shown any more.
    void leave() noexcept;

    // Shows what has arrived, without waiting.
    void handle_arrived() { session_.handle_arrived(); }
    // Readable when something has arrived.
    [[nodiscard]] int handle() const noexcept { return session_.handle(); }

private:
    void receive(const std::string& text);
    // Until `done` is set by a text: true; false when a signal comes first. Renewed, the time
    // begins anew with every text.
    enum class Patience { fixed, renewed };
    [[nodiscard]] bool wait_for(const bool& done, Patience patience, const std::string& failure);
    void send_line(std::string_view line);

    const Interrupt& interrupt_;
    const std::chrono::milliseconds timeout_;
    const std::function<void(const std::string& text)> show_;
    Random random_ = Random::from_system();
    Session session_;
    bool logged_in_ = false;
    bool leaving_ = false;
    std::string end_of_reply_;  // empty: none is waited for
    bool complete_ = false;
    bool unknown_ = false;
    bool spoken_ = false;  // a text has come since somebody looked
};

}  // namespace vorrim::cli
