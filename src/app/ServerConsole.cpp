#include "app/ServerConsole.h"

#include <cstdint>
#include <malloc.h>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "app/CommandLine.h"
#include "app/IniFile.h"
#include "base/Output.h"
#include "base/SelfTests.h"
#include "client/ClientConnection.h"
#include "client/ClientTable.h"
#include "client/FileIndex.h"
#include "client/WelcomeLines.h"
#include "meta/ClientId.h"
#include "meta/RecordView.h"
#include "meta/TagNames.h"
#include "meta/TagSelfTest.h"

namespace vorrim {

namespace {

constexpr const char* kHelp[] = {
    "Commands: (optional arguments)",
    "m message\t: broadcast a message to all clients",
    "\tExample: m hello out there",
    "wel (# newMessage)\t: Change or view the welcome strings.",
    "q\t\t: quit",
    "vc\t\t: view all clients connected.",
    "vf\t\t: view all files published.",
    "vo\t\t: view the optional settings.",
    "vs\t\t: view known servers.",
    "g\t\t: get server stats",
    "ip #\t\t: get IP of the client ID",
    "d #\t\t: disconnect from client ID",
    "pass (name password)\t: sets the name and password to allow a remote controller",
    "\t\t of this client. If name ans password are left blank then the username",
    "\t\t and password are cleared and no remote control is allowed.",
    "\tExample: pass admin secret",
};

constexpr const char* kNoText = "(null)";

// As a command's argument: nothing when there is none.
std::optional<std::uint32_t> client_id_of(std::string_view line) {
    CommandLine words(line);
    words.next();
    const std::string_view id = words.next();
    if (id.empty()) {
        current_output().printLine("Need Client ID");
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(IniFile::toInt(id));
}

void print_servers(
    const std::function<void(const std::function<void(const ServerMeta&)>&)>& for_each) {
    struct Row {
        std::string name;
        std::uint32_t address;
        std::uint16_t port;
        std::uint32_t pings;
    };
    std::vector<Row> rows;
    for_each([&rows](const ServerMeta& server) {
        const TagText name = server.getTextTag(wire_name(TagId::Name));
        rows.push_back(
            {std::string(name.value_or(kNoText)), server.id(), server.port(), server.history()});
    });
    current_output().printLine("Num\tName\t\tIP\t\tPort\t\tPingCount");
    int number = 0;
    for (const Row& row : rows) {
        current_output().printLine("(%d)\t%s\t%s\t%d\t%d", ++number, row.name.c_str(),
                                   ipToText(row.address).c_str(), row.port,
                                   static_cast<int>(row.pings));
    }
}

}  // namespace

ServerConsole::ServerConsole(ConsoleInput& input, const ServerSettings& settings,
                             ClientService& service, const ServerDirectory& directory,
                             std::function<void()> sweep, const Random& random)
    : Console(input),
      settings_(settings),
      service_(service),
      directory_(directory),
      sweep_(std::move(sweep)),
      random_(random) {
    addCommand("?", [this](std::string_view) { help(); });
    addCommand("q", [this](std::string_view) { quit(); });
    addCommand("vc", [this](std::string_view) { view_clients(); });
    addCommand("vf", [](std::string_view) {});
    addCommand("vo", [this](std::string_view) { view_options(); });
    addCommand("vs", [this](std::string_view) { view_servers(); });
    addCommand("m", [this](std::string_view line) { broadcast(line); });
    addCommand("pass", [this](std::string_view line) { set_password(line); });
    addCommand("g", [this](std::string_view) { statistics(); });
    addCommand("wel", [this](std::string_view line) { welcome(line); });
    addCommand("test", [this](std::string_view) { self_test(); });
    addCommand("free", [this](std::string_view) { free_memory(); });
    addCommand("ip", [this](std::string_view line) { client_address(line); });
    addCommand("d", [this](std::string_view line) { disconnect(line); });
    addCommand("sweep", [this](std::string_view) { sweep_(); });
}

void ServerConsole::help() const {
    for (const char* line : kHelp)
        current_output().printLine("%s", line);
}

void ServerConsole::quit() {
    confirm("Are you sure you want to exit", [this] { stop(); });
}

void ServerConsole::view_clients() const {
    struct Row {
        std::uint32_t id;
        std::string name;
    };
    std::vector<Row> rows;
    service_.clients.for_each([&](ClientConnection& client) {
        const auto name = service_.clients.record_of(client).find_tag(wire_name(TagId::Name));
        const bool is_text = name && name->type == TagType::text;
        rows.push_back({client.id().value(), std::string(is_text ? name->text() : kNoText)});
    });
    current_output().printLine("Num\tID\tName");
    int number = 0;
    for (const Row& row : rows) {
        current_output().printLine("(%d)\t%s\t%s", ++number, ipToText(row.id).c_str(),
                                   row.name.c_str());
    }
}

void ServerConsole::view_options() const {
    const Credentials credentials = remoteCredentials();
    current_output().printLine("AdminName: %s", credentials.name.value_or(kNoText).c_str());
    current_output().printLine("AdminPass: %s", credentials.password.value_or(kNoText).c_str());
    current_output().printLine("Port: %d", settings_.clientPort());
    current_output().printLine("Workers: %d", settings_.threads);
    current_output().printLine("MaxClients: %d", settings_.maxClients);
    current_output().printLine("Versions Allowed: %d - %d", settings_.minVersion,
                               settings_.maxVersion);
}

void ServerConsole::view_servers() const {
    print_servers([this](const auto& see) { directory_.forEachKnown(see); });
    current_output().printLine("Working:");
    print_servers([this](const auto& see) { directory_.forEachWorking(see); });
}

void ServerConsole::broadcast(std::string_view line) const {
    CommandLine words(line);
    words.next();
    service_.clients.send_text_to_all(words.rest());
}

void ServerConsole::set_password(std::string_view line) {
    CommandLine words(line);
    words.next();
    const auto argument = [&words]() -> std::optional<std::string> {
        const std::string_view word = words.next();
        if (word.empty()) return std::nullopt;
        return std::string(word);
    };
    std::optional<std::string> name = argument();
    setRemoteCredentials(std::move(name), argument());
}

void ServerConsole::statistics() const {
    current_output().printLine("Users: %d\t\tFiles: %d", service_.clients.count(),
                               service_.files.source_total());
}

void ServerConsole::welcome(std::string_view line) const {
    CommandLine words(line);
    words.next();
    const std::string_view number = words.next();
    if (!number.empty()) {
        // A negative number names no position either, and the text is appended.
        const std::int32_t position = IniFile::toInt(number);
        if (position != 0) service_.welcome.set(static_cast<std::size_t>(position), words.rest());
        return;
    }
    std::vector<std::string> lines;
    service_.welcome.for_each([&lines](const std::string& text) { lines.push_back(text); });
    int position = 0;
    for (const std::string& text : lines)
        current_output().printLine("(%d) %s", ++position, text.c_str());
}

void ServerConsole::self_test() const {
    Random random = random_;
    SelfTestSuite from_above;
    from_above.append(std::make_unique<FunctionSelfTest>(test_tags));
    run_self_tests(build_self_tests(random, std::move(from_above)));
}

void ServerConsole::free_memory() const {
    current_output().printLine("Minimizing the heap.");
    ::malloc_trim(0);
}

void ServerConsole::client_address(std::string_view line) const {
    const std::optional<std::uint32_t> id = client_id_of(line);
    if (!id || *id == 0) return;
    std::optional<std::uint32_t> address;
    if (ClientId(*id).exceeds_low_range()) {
        address = *id;
    } else {
        service_.clients.with_id(ClientId(*id),
                                 [&](ClientConnection& client) { address = client.peer(); });
    }
    if (address) {
        current_output().printLine("IP: %s", ipToText(*address).c_str());
    } else {
        current_output().printLine("No such client");
    }
}

void ServerConsole::disconnect(std::string_view line) const {
    const std::optional<std::uint32_t> id = client_id_of(line);
    if (!id || *id == 0) return;
    const bool found =
        service_.clients.with_id(ClientId(*id), [](ClientConnection& client) { client.close(); });
    current_output().printLine(found ? "Client Disconnected." : "No such client");
}

}  // namespace vorrim
