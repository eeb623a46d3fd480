// What a server says of itself.

#include "Commands.h"
#include "Conversation.h"
#include "Datagrams.h"
#include "Records.h"
#include "Text.h"

namespace vorrim::cli {

Outcome run_status(const Context& context) {
    // The datagram goes first, so that our own connection is not among the users counted.
    const ServerStatus status =
        Datagrams(context.net, context.server(), context.options.timeout).status();
    nlohmann::json document = {{"command", "status"},
                               {"server", context.server().text()},
                               {"users", status.users},
                               {"files", status.files},
                               {"round_trip_ms", in_milliseconds(status.round_trip)},
                               {"name", nullptr},
                               {"description", nullptr},
                               {"address", nullptr}};
    if (!context.options.udp) {
        Session session = connected_session(context);
        session.send(Opcode::OP_GET_SERVER_LIST);
        Message answer = session.wait({Opcode::OP_SERVER_IDENT});
        const FrozenRecord record = read_record(answer.data);
        const nlohmann::json file = file_json(record.view());
        document["name"] = file["name"];
        const nlohmann::json& tags = file["tags"];
        if (tags.contains("Description") && tags["Description"] != "") {
            document["description"] = tags["Description"];
        }
        document["address"] = dotted(record.view().id());
    }
    if (context.options.json) {
        print_json(document);
        return Outcome::found;
    }
    const auto line = [&](std::string_view title, const std::string& value) {
        std::string padded(title);
        padded.resize(14, ' ');
        print_line(context.terminal.on_output(Style::dim, padded) + value);
    };
    line("server", printable(context.server().text()));
    for (const char* field : {"name", "description", "address"}) {
        if (document[field].is_string()) line(field, printable(document[field].get<std::string>()));
    }
    line("users", readable_count(status.users));
    line("files", readable_count(status.files));
    line("answered in", readable_time(status.round_trip));
    return Outcome::found;
}

}  // namespace vorrim::cli
