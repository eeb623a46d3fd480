// Searches for files and for users.

#include <chrono>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Commands.h"
#include "Conversation.h"
#include "Datagrams.h"
#include "ExpressionParser.h"
#include "Records.h"
#include "Text.h"
#include "base/file/primitives.h"
#include "base/kx_err.h"

namespace vorrim::cli {

namespace {

using Clock = std::chrono::steady_clock;

// What one kind of search is made of; the rest is the same for both.
struct SearchKind {
    const char* command;
    Opcode request;
    Opcode answer;
    Opcode datagram;
    const char* singular;
    const char* plural;
    TablePrinter (*table)(std::span<const FrozenRecord>);
    nlohmann::json (*json)(RecordView);
};

constexpr SearchKind kFiles = {"search",
                               Opcode::OP_SEARCH_FILES,
                               Opcode::OP_SEARCH_RESULTS,
                               Opcode::OP_UDP_SEARCH_FILES,
                               "file",
                               "files",
                               file_table,
                               file_json};
constexpr SearchKind kUsers = {"users",
                               Opcode::OP_SEARCH_USERS,
                               Opcode::OP_USER_RESULTS,
                               Opcode::OP_UDP_SEARCH_USERS,
                               "user",
                               "users",
                               user_table,
                               user_json};

// A server does not read longer datagrams.
constexpr std::size_t kLargestQuestion = 3072;

struct Findings {
    std::vector<FrozenRecord> records;
    bool more = false;     // the server has further results
    bool complete = true;  // false: datagrams may have been lost
    std::chrono::nanoseconds elapsed{};
};

void append(std::vector<FrozenRecord>& to, std::vector<FrozenRecord> from) {
    to.insert(to.end(), std::make_move_iterator(from.begin()), std::make_move_iterator(from.end()));
}

void write_expression(const SearchNode& root, kx_memory_file& out) {
    if (!root.write(out)) throw Failure("this search cannot be sent");
}

Findings search_connected(const Context& context, const SearchKind& kind, const SearchNode& root) {
    const std::optional<Listener> listener = listen_as_asked(context);
    Session session = logged_in_session(context, listener ? &*listener : nullptr);
    Packet request(static_cast<std::uint32_t>(1 + root.wire_size()));
    write_8(request.body(), to_byte(kind.request));
    write_expression(root, request.body());
    request.finish();

    Findings found;
    const auto start = Clock::now();
    session.send(std::move(request));
    for (;;) {
        Message answer = session.wait({kind.answer});
        append(found.records, read_records(answer.data));
        if (kind.answer == Opcode::OP_SEARCH_RESULTS) {
            try {
                found.more = read_8(answer.data) != 0;
            } catch (const kx_err&) {
                throw Failure("the server sent an answer that cannot be read");
            }
        }
        if (!found.more || !context.options.more) break;
        session.send(Opcode::OP_MORE_RESULTS);
    }
    found.elapsed = Clock::now() - start;

    // The person who asks knows that this client is connected.
    if (kind.request == Opcode::OP_SEARCH_USERS) {
        std::erase_if(found.records, [&](const FrozenRecord& record) {
            return record.view().hash() == session.own_hash();
        });
    }
    return found;
}

Findings search_by_datagram(const Context& context, const SearchKind& kind,
                            const SearchNode& root) {
    if (context.options.more)
        throw Failure("datagrams have no further pages: leave out --more or --udp");
    kx_memory_file question(256);
    write_8(question, kDatagramMarker);
    write_8(question, to_byte(kind.datagram));
    write_expression(root, question);
    if (question.contents().size() > kLargestQuestion) {
        throw Failure("this search is too long for a datagram");
    }
    Findings found;
    const Datagrams::Answers answers =
        Datagrams(context.net, context.server(), context.options.timeout)
            .ask(question, Opcode::OP_UDP_SEARCH_RESULT);
    found.elapsed = answers.elapsed;
    found.complete = answers.complete;
    for (const auto& datagram : answers.datagrams) {
        kx_memory_file data = kx_memory_file::reading(std::span(datagram).subspan(1));
        found.records.push_back(read_record(data));
    }
    return found;
}

std::string summary(const SearchKind& kind, const Findings& found) {
    std::string line = found.records.empty()
                           ? std::string("nothing found")
                           : counted(found.records.size(), kind.singular, kind.plural);
    line += " in " + readable_time(found.elapsed);
    if (found.more) line += "; there are more, --more shows them";
    if (!found.complete) line += "; the end was not heard, some may be missing";
    return line;
}

Outcome run(const Context& context, const SearchKind& kind, const std::vector<std::string>& words) {
    const std::unique_ptr<SearchNode> root = parse_expression(words);
    const Findings found = context.options.udp ? search_by_datagram(context, kind, *root)
                                               : search_connected(context, kind, *root);
    if (context.options.json) {
        nlohmann::json results = nlohmann::json::array();
        for (const FrozenRecord& record : found.records)
            results.push_back(kind.json(record.view()));
        print_json({{"command", kind.command},
                    {"server", context.server().text()},
                    {"results", std::move(results)},
                    {"count", found.records.size()},
                    {"more", found.more},
                    {"complete", found.complete},
                    {"elapsed_ms", in_milliseconds(found.elapsed)}});
    } else {
        const TablePrinter table = kind.table(found.records);
        if (!table.empty()) print(table.text(context.terminal));
        print_line(context.terminal.on_output(Style::dim, summary(kind, found)));
    }
    return found.records.empty() ? Outcome::nothing : Outcome::found;
}

}  // namespace

Outcome run_search(const Context& context) {
    return run(context, kFiles, context.options.words);
}

Outcome run_users(const Context& context) {
    const std::vector<std::string> everybody = {"*"};
    return run(context, kUsers, context.options.words.empty() ? everybody : context.options.words);
}

}  // namespace vorrim::cli
