#include "Options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <string_view>

#include "Failure.h"

namespace vorrim::cli {

namespace {

// Stands in front of "-word" while the option parser looks, which would take it for an option.
constexpr char kShield = '\x1f';

constexpr unsigned kHighestServerPort = 65'531;  // the datagram door lies four above
constexpr unsigned kHighestPort = 65'535;
constexpr double kLongestWait = 3600;  // seconds

constexpr const char* kFooter =
    R"(Exit codes: 0 something was found or done, 1 nothing was found, 2 an error, in one line.
docs/cli.md describes every command and the JSON documents.)";

constexpr const char* kSearchFooter = R"(The search language:
  linux kernel             both words
  "blue sky"               a phrase; the first word must be a whole word of the name
  -word                    without this word
  mp3 OR ogg               either one, weaker than words side by side; (...) groups
  type=audio format!=mp3   text tags: name, type, format, desc, or any other by its name
  size>1M sources>=3       numbers: = != < > <= >=, with K, M, G for 1024 and so on
  *                        everything
Types are Audio, Video, Image, Doc, Pro and Archive.
Sizes are compared as signed 32-bit numbers: from 2 GiB on they count as negative.
Without a reachable port (--listen), and always with --udp, a server shows only files that
some reachable client has.)";

constexpr const char* kAdminFooter =
    R"(COMMAND is a line of the server's console; '?' lists them. Without one, a terminal gets a line with
editing and history (Ctrl-D or Ctrl-C leaves), and of a pipe every line is a command.
Name and password come from --user and --password-file, from VORRIM_ADMIN_NAME and
VORRIM_ADMIN_PASSWORD, or are asked for on the terminal. While an administrator is connected, the
server's own console and log are silent. The question of "q" is answered at the server's console.)";

std::vector<std::string> shielded(int argc, const char* const* argv) {
    std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
    const auto command = std::find_if(arguments.begin(), arguments.end(), [](std::string_view a) {
        return a == "search" || a == "users" || a == "admin";
    });
    for (auto a = command; a != arguments.end(); ++a) {
        if (a->size() > 1 && (*a)[0] == '-' && (*a)[1] != '-' && *a != "-h") {
            a->insert(a->begin(), kShield);
        }
    }
    return arguments;
}

std::vector<std::string> unshielded(std::vector<std::string> words) {
    for (std::string& word : words) {
        if (!word.empty() && word[0] == kShield) word.erase(0, 1);
    }
    return words;
}

std::chrono::milliseconds milliseconds_of(double seconds) {
    return std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
}

void add_common(CLI::App& app, Options& options, double& timeout) {
    app.add_option("--host", options.host, "The server's name or address")
        ->capture_default_str()
        ->type_name("HOST");
    app.add_option("--port", options.port, "Its client port; datagrams go to this port + 4")
        ->capture_default_str()
        ->check(CLI::Range(1u, kHighestServerPort))
        ->type_name("PORT");
    app.add_flag("--udp", options.udp,
                 "Ask by datagram: status, search, users, sources, callback. No login");
    app.add_option("--listen", options.listen,
                   "Accept connections on this port (0: a free one), for a high identifier")
        ->check(CLI::Range(0u, kHighestPort))
        ->type_name("PORT");
    app.add_flag("--json", options.json, "One JSON document on standard output");
    app.add_option("--timeout", timeout, "Seconds to wait for an answer")
        ->capture_default_str()
        ->check(CLI::Range(0.1, kLongestWait))
        ->type_name("SECONDS");
    app.add_option("--name", options.name, "The name that other users see")
        ->capture_default_str()
        ->type_name("NAME");
}

CLI::App& add_command(CLI::App& app, Options& options, const char* name, const char* text,
                      Command command) {
    CLI::App* added = app.add_subcommand(name, text);
    added->fallthrough();
    added->callback([&options, command] { options.command = command; });
    return *added;
}

void add_admin(CLI::App& app, Options& options) {
    CLI::App& admin = add_command(
        app, options, "admin",
        "Administer a server: one command, or several from a terminal or a pipe", Command::admin);
    admin.add_option("COMMAND", options.words, "One command line for the server's console");
    admin
        .add_option("--admin-port", options.admin_port,
                    "The server's administration port; --port is not used")
        ->capture_default_str()
        ->check(CLI::Range(1u, kHighestPort))
        ->type_name("PORT");
    admin.add_option("--user", options.user, "The administrator's name")->type_name("NAME");
    admin
        .add_option("--password-file", options.password_file,
                    "The password is the last line of FILE; of two lines the first is the name")
        ->type_name("FILE");
    admin.add_flag("--watch", options.watch, "Print what the server prints until Ctrl-C");
    admin
        .add_flag("--stop", options.stop, "Stop the server; done when it has closed the connection")
        ->excludes("COMMAND")
        ->excludes("--watch");
    admin.footer(kAdminFooter);
}

}  // namespace

ParsedOptions parse_options(int argc, const char* const* argv) {
    ParsedOptions parsed;
    Options& options = parsed.options;
    double timeout = std::chrono::duration<double>(options.timeout).count();

    double wait = 0;
    CLI::App app("Talks to a Vorrim server from a terminal or a script.", "vorrim-cli");
    app.set_version_flag("--version", "vorrim-cli " VORRIM_VERSION);
    app.footer(kFooter);
    app.require_subcommand(1);
    add_common(app, options, timeout);

    add_command(app, options, "status", "Users and files of a server, and its name",
                Command::status);
    add_command(app, options, "publish",
                "Publish files and folders, and stay connected until Ctrl-C", Command::publish)
        .add_option("PATH", options.paths,
                    "Files and folders; links inside folders are not followed")
        ->required();
    CLI::App& search = add_command(app, options, "search", "Search for files", Command::search);
    search.add_option("WORDS", options.words, "What to search for")->required();
    search.add_flag("--more", options.more, "Every page of results, not only the first");
    search.footer(kSearchFooter);
    add_command(app, options, "sources", "Who has a file", Command::sources)
        .add_option("HASH", options.hash, "The file's hash, 32 hexadecimal digits")
        ->required();
    add_command(app, options, "users", "Connected clients, all or those that match", Command::users)
        .add_option("WORDS", options.words, "As for search");
    add_command(app, options, "servers", "Other servers that this one has heard from",
                Command::servers);
    CLI::App& callback = add_command(
        app, options, "callback",
        "Ask a client with a low identifier to connect to this one (listens by default)",
        Command::callback);
    callback.add_option("ID", options.id, "The client's identifier, as a number or as 1.0.0.0")
        ->required();
    callback.add_option("--wait", wait, "Seconds to wait for its connection")
        ->check(CLI::Range(0.0, kLongestWait))
        ->type_name("SECONDS");
    add_admin(app, options);

    try {
        std::vector<std::string> arguments = shielded(argc, argv);
        std::reverse(arguments.begin(), arguments.end());  // the parser takes them from the back
        app.parse(std::move(arguments));
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            parsed.exit_code = app.exit(error);
            return parsed;
        }
        // The parser misses a command before it looks at a word that should have been one.
        const std::vector<std::string> strange = app.remaining();
        const bool names_none = app.get_subcommands().empty() && !strange.empty();
        std::fprintf(stderr, "vorrim-cli: %s (see vorrim-cli --help)\n",
                     names_none ? ("there is no command or option " + strange.front()).c_str()
                                : error.what());
        parsed.exit_code = static_cast<int>(Outcome::error);
        return parsed;
    }
    options.words = unshielded(std::move(options.words));
    options.timeout = milliseconds_of(timeout);
    options.wait = milliseconds_of(wait);
    return parsed;
}

}  // namespace vorrim::cli
