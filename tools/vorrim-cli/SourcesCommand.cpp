// Who has a file.

#include <algorithm>
#include <span>

#include "Commands.h"
#include "Conversation.h"
#include "Datagrams.h"
#include "Records.h"
#include "Text.h"
#include "base/file/primitives.h"
#include "base/kx_err.h"

namespace vorrim::cli {

namespace {

FileHash typed_hash(const std::string& text) {
    const std::optional<FileHash> hash = hexToHash(text);
    if (!hash) throw Failure("a hash is 32 hexadecimal digits, not '" + printable(text) + "'");
    return *hash;
}

// The sources in an answer, when it is about this file.
std::optional<std::vector<Source>> sources_in(kx_memory_file& data, const FileHash& hash) {
    try {
        if (FileHash::read(data) != hash) return std::nullopt;
    } catch (const kx_err&) {
        return std::nullopt;
    }
    return read_endpoints(data);
}

std::vector<Source> ask_connected(const Context& context, const FileHash& hash) {
    // No login: it would only give us an identifier that nobody needs.
    Session session = connected_session(context);
    Packet request(static_cast<std::uint32_t>(1 + hash.bytes.size()));
    write_8(request.body(), to_byte(Opcode::OP_GET_SOURCES));
    write_bytes(request.body(), hash.bytes);
    session.send(std::move(request));
    session.send_fence();
    Message answer = session.wait({Opcode::OP_FOUND_SOURCES, Session::kFenceAnswer});
    if (answer.opcode == Session::kFenceAnswer) return {};
    return sources_in(answer.data, hash).value_or(std::vector<Source>{});
}

std::vector<Source> ask_by_datagram(const Context& context, const FileHash& hash) {
    kx_memory_file question(32);
    write_8(question, kDatagramMarker);
    write_8(question, to_byte(Opcode::OP_UDP_GET_SOURCES));
    write_bytes(question, hash.bytes);
    const Datagrams::Answers answers =
        Datagrams(context.net, context.server(), context.options.timeout)
            .ask(question, Opcode::OP_UDP_FOUND_SOURCES);
    for (const auto& datagram : answers.datagrams) {
        kx_memory_file data = kx_memory_file::reading(std::span(datagram).subspan(1));
        if (auto sources = sources_in(data, hash)) return *sources;
    }
    return {};
}

}  // namespace

Outcome run_sources(const Context& context) {
    const FileHash hash = typed_hash(context.options.hash);
    const std::vector<Source> sources =
        context.options.udp ? ask_by_datagram(context, hash) : ask_connected(context, hash);
    if (context.options.json) {
        nlohmann::json list = nlohmann::json::array();
        for (const Source& source : sources)
            list.push_back(source_json(source));
        print_json({{"command", "sources"},
                    {"server", context.server().text()},
                    {"hash", hashToHex(hash)},
                    {"sources", std::move(list)},
                    {"count", sources.size()}});
    } else if (sources.empty()) {
        print_line(context.terminal.on_output(Style::dim, "nobody has this file"));
    } else {
        print(source_table(sources).text(context.terminal));
        std::string line = counted(sources.size(), "source", "sources");
        if (sources.size() >= kMaxEntriesInList) line += ", the most that a server names";
        print_line(context.terminal.on_output(Style::dim, line));
    }
    return sources.empty() ? Outcome::nothing : Outcome::found;
}

}  // namespace vorrim::cli
