// Asking a client that cannot be reached to connect to this one.

#include <charconv>

#include "Commands.h"
#include "Conversation.h"
#include "Datagrams.h"
#include "Records.h"
#include "Text.h"
#include "base/file/primitives.h"

namespace vorrim::cli {

namespace {

ClientId typed_id(const std::string& text) {
    std::uint32_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc{} || rest != end) {
        value = textToIp(text.c_str());
    }
    if (value == 0) {
        throw Failure("an identifier is a number such as 5 or an address such as 1.0.0.0, not '" +
                      printable(text) + "'");
    }
    return ClientId(value);
}

struct Asked {
    ClientId as;          // who the wanted client is told to connect to
    bool passed_on;       // the server did not refuse
    std::string refusal;  // why it did
};

Asked ask_connected(const Context& context, ClientId wanted, Listener& listener) {
    Session session = logged_in_session(context, &listener);
    (void)listener.greet();  // the server's test of the port
    Packet request(1 + sizeof(std::uint32_t));
    write_8(request.body(), to_byte(Opcode::OP_CALLBACK_REQUEST));
    write_32(request.body(), wanted.value());
    session.send(std::move(request));
    session.send_fence();
    const Message answer = session.wait({Opcode::OP_CALLBACK_FAILED, Session::kFenceAnswer});
    const bool reachable = session.id().exceeds_low_range();
    return {session.id(), answer.opcode == Session::kFenceAnswer,
            reachable
                ? "no client has the identifier " + dotted(wanted)
                : "only a client with a high identifier may ask, and the server gave this one " +
                      dotted(session.id())};
}

Asked ask_by_datagram(const Context& context, ClientId wanted, const Listener& listener) {
    if (!wanted.below_low_limit()) {
        throw Failure(dotted(wanted) + " is a high identifier: connect to that client directly");
    }
    Datagrams datagrams(context.net, context.server(), context.options.timeout);
    const ClientId own(datagrams.own_address());
    kx_memory_file question(16);
    write_8(question, kDatagramMarker);
    write_8(question, to_byte(Opcode::OP_UDP_CALLBACK_REQUEST));
    write_32(question, own.value());
    write_16(question, listener.port());
    write_32(question, wanted.value());
    const Datagrams::Answers answers = datagrams.ask(question, Opcode::OP_UDP_CALLBACK_FAILED);
    return {own, answers.datagrams.empty(), "no client has the identifier " + dotted(wanted)};
}

}  // namespace

Outcome run_callback(const Context& context) {
    const ClientId wanted = typed_id(context.options.id);
    // Without a port to connect to, asking would be pointless.
    std::optional<Listener> listener = listen_as_asked(context, std::uint16_t{0});
    const Asked asked = context.options.udp ? ask_by_datagram(context, wanted, *listener)
                                            : ask_connected(context, wanted, *listener);
    std::optional<std::string> visitor;
    const bool waits = context.options.wait.count() > 0;
    if (asked.passed_on && waits) visitor = listener->wait_for_visitor(context.options.wait);
    const Source here{asked.as, listener->port()};

    if (context.options.json) {
        print_json({{"command", "callback"},
                    {"server", context.server().text()},
                    {"wanted", wanted.value()},
                    {"passed_on", asked.passed_on},
                    {"refusal", asked.passed_on ? nlohmann::json() : nlohmann::json(asked.refusal)},
                    {"listening", source_json(here)},
                    {"connected_from", visitor ? nlohmann::json(*visitor) : nlohmann::json()}});
    } else if (!asked.passed_on) {
        print_line("refused: " + asked.refusal);
    } else {
        print_line(dotted(wanted) + " has been asked to connect to " + dotted(here.id) + ':' +
                   std::to_string(here.port));
        if (visitor) print_line("connected from " + *visitor);
        if (waits && !visitor) print_line("nobody connected " + within(context.options.wait));
    }
    return asked.passed_on && (visitor || !waits) ? Outcome::found : Outcome::nothing;
}

}  // namespace vorrim::cli
