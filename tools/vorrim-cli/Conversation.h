#pragma once
// What the commands have in common: getting into a session, and getting their findings out.

#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "Commands.h"
#include "Session.h"
#include "net/kx_net.h"

namespace vorrim::cli {

// A port on which others may connect to this client. Whoever does is let in and sent away: the
// connection itself is all that a server's test wants to see.
class Listener {
public:
    // Port 0 takes a free one. Raises Failure when the port cannot be had.
    Listener(kx_net_protocol& net, std::uint16_t port);
    [[nodiscard]] std::uint16_t port() const noexcept { return port_; }
    [[nodiscard]] int handle() const noexcept { return socket_->handle(); }
    // Lets everybody in who waits; returns the address of the last one, if there was any.
    std::optional<std::string> greet();
    // The same, for one who comes after now.
    std::optional<std::string> wait_for_visitor(std::chrono::milliseconds patience);

private:
    std::unique_ptr<kx_net_socket> socket_;
    std::uint16_t port_;
};

// The listener that the options ask for; `otherwise` is for commands that listen by themselves.
[[nodiscard]] std::optional<Listener> listen_as_asked(
    const Context& context, std::optional<std::uint16_t> otherwise = std::nullopt);

// Connected, not logged in. Texts of the server are shown, dimmed, when a person is looking.
[[nodiscard]] Session connected_session(const Context& context);
// The same, logged in.
[[nodiscard]] Session logged_in_session(const Context& context, const Listener* listener = nullptr);

// Standard output. A stream that is no longer there ends the command.
void print(std::string_view text);
void print_line(std::string_view text);
void print_json(const nlohmann::json& document);
// Takes away what a progress line may have left on the terminal.
void clear_progress(const Context& context);
// Standard error, and only when it is a terminal.
void print_aside(const Context& context, std::string_view text);

[[nodiscard]] double in_milliseconds(std::chrono::nanoseconds time);

}  // namespace vorrim::cli
