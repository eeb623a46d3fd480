// Other servers that this one has heard from.

#include "Commands.h"
#include "Conversation.h"
#include "Records.h"
#include "Text.h"

namespace vorrim::cli {

Outcome run_servers(const Context& context) {
    if (context.options.udp)
        throw Failure("a server names others only over a connection: leave out --udp");
    Session session = connected_session(context);
    session.send(Opcode::OP_GET_SERVER_LIST);
    Message answer = session.wait({Opcode::OP_SERVER_LIST});
    const std::vector<Source> servers = read_endpoints(answer.data);
    if (context.options.json) {
        nlohmann::json list = nlohmann::json::array();
        for (const Source& server : servers) {
            list.push_back({{"address", dotted(server.id)}, {"port", server.port}});
        }
        print_json({{"command", "servers"},
                    {"server", context.server().text()},
                    {"servers", std::move(list)},
                    {"count", servers.size()}});
    } else if (servers.empty()) {
        print_line(context.terminal.on_output(Style::dim, "this server has heard from no other"));
    } else {
        TablePrinter table({{"ADDRESS"}, {"PORT", Align::right}});
        for (const Source& server : servers) {
            table.add_row({dotted(server.id), std::to_string(server.port)});
        }
        print(table.text(context.terminal));
    }
    return servers.empty() ? Outcome::nothing : Outcome::found;
}

}  // namespace vorrim::cli
