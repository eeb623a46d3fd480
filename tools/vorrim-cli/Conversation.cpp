#include "Conversation.h"

#include <cstdio>
#include <utility>

#include "Failure.h"
#include "Text.h"

namespace vorrim::cli {

Listener::Listener(kx_net_protocol& net, std::uint16_t port)
    : socket_(net.listen(port, 0, SocketType::stream)) {
    const auto address = socket_ ? socket_->local_address() : std::nullopt;
    if (!address) throw Failure("cannot listen on port " + std::to_string(port));
    port_ = address->get_port();
}

std::optional<std::string> Listener::greet() {
    std::optional<std::string> last;
    for (;;) {
        std::unique_ptr<kx_net_socket> visitor;
        const AcceptResult result = socket_->accept(visitor);
        if (result == AcceptResult::accepted) {
            const auto address = visitor->peer_address();
            last = address ? address->text() : "somebody who left at once";
        } else if (result != AcceptResult::retry) {
            return last;
        }
    }
}

std::optional<std::string> Listener::wait_for_visitor(std::chrono::milliseconds patience) {
    if (socket_->wait_ready(kReadable, static_cast<int>(patience.count())) == 0)
        return std::nullopt;
    return greet();
}

std::optional<Listener> listen_as_asked(const Context& context,
                                        std::optional<std::uint16_t> otherwise) {
    const std::optional<std::uint16_t> port =
        context.options.listen ? context.options.listen : otherwise;
    if (!port) return std::nullopt;
    return Listener(context.net, *port);
}

Session connected_session(const Context& context) {
    SessionEvents events;
    events.text = [&context](const std::string& text) { print_aside(context, printable(text)); };
    return Session(context.net, context.server(), context.options.timeout, std::move(events));
}

Session logged_in_session(const Context& context, const Listener* listener) {
    Session session = connected_session(context);
    session.login(context.options.name, listener != nullptr ? listener->port() : std::uint16_t{0});
    return session;
}

void print(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() ||
        std::fflush(stdout) != 0) {
        throw Failure("cannot write to standard output");
    }
}

void print_line(std::string_view text) {
    print(std::string(text) + '\n');
}

void print_json(const nlohmann::json& document) {
    // Names that are not UTF-8 come out with replacement characters: JSON holds nothing else.
    print_line(document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace));
}

void clear_progress(const Context& context) {
    if (context.terminal.errors_are_terminal()) std::fputs("\r\x1b[K", stderr);
}

void print_aside(const Context& context, std::string_view text) {
    if (!context.terminal.errors_are_terminal() || context.options.json) return;
    clear_progress(context);
    std::fprintf(stderr, "%s\n", context.terminal.on_errors(Style::dim, text).c_str());
}

double in_milliseconds(std::chrono::nanoseconds time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

}  // namespace vorrim::cli
