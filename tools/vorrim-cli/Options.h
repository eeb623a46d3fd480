#pragma once
// The command line, understood.

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vorrim::cli {

enum class Command { status, publish, search, sources, users, servers, callback, admin };

struct Options {
    Command command = Command::status;

    std::string host = "127.0.0.1";
    std::uint16_t port = 4661;
    bool udp = false;
    bool json = false;
    std::chrono::milliseconds timeout{5000};  // for an answer
    std::optional<std::uint16_t> listen;      // 0: a free port
    std::string name = "vorrim-cli";          // what other users see

    bool more = false;                  // search: every page
    std::vector<std::string> words;     // search, users; admin: the command line
    std::vector<std::string> paths;     // publish
    std::string hash;                   // sources
    std::string id;                     // callback
    std::chrono::milliseconds wait{0};  // callback: for the connection; 0 does not wait

    // admin
    std::uint16_t admin_port = 4663;
    std::optional<std::string> user;
    std::optional<std::string> password_file;
    bool watch = false;
    bool stop = false;
};

struct ParsedOptions {
    Options options;
    // Set when there is nothing to run: --help and --version have been printed (0), or the command
    // line made no sense and one line has said so (2).
    std::optional<int> exit_code;
};

[[nodiscard]] ParsedOptions parse_options(int argc, const char* const* argv);

}  // namespace vorrim::cli
