// vorrim-cli admin as operators meet it: at a terminal, at a pipe, in scripts.
#include <fcntl.h>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

using Words = std::vector<std::string>;

constexpr const char* kAccount = "adminName=root\nadminPass=two words\nverbose=false\n";

// The command for this server, with what the environment says in front.
Words admin(const ServerProcess& server, const Words& arguments,
            const Words& variables = {"VORRIM_ADMIN_NAME=root",
                                      "VORRIM_ADMIN_PASSWORD=two words"}) {
    Words command = {"/usr/bin/env", "--ignore-environment", "TERM=xterm"};
    command.insert(command.end(), variables.begin(), variables.end());
    command.insert(command.end(), {VORRIM_CLI_BINARY, "admin", "--admin-port",
                                   std::to_string(server.ports().admin())});
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

// Exit status, standard output, standard error.
std::string run(const Words& command, const std::string& input = "") {
    Program program(command, {.input = input});
    const int status = program.exit();
    return std::to_string(status) + '\n' + program.output() + program.errors();
}

TEST(AdminCli, OneCommandPrintsItsWholeReplyAndNothingElse) {
    const ServerProcess server(std::string(kAccount) + "welcome[0]=one\nwelcome[1]=two\n");
    EXPECT_EQ(run(admin(server, {"wel"})), "0\n(1) server version 16.36\n(2) one\n(3) two\n");
    EXPECT_EQ(run(admin(server, {"vf"})), "0\n");
    EXPECT_EQ(run(admin(server, {"ip", "16777216"})), "0\nIP: 0.0.0.1\n");
    EXPECT_EQ(run(admin(server, {"wel -1 added, as it stands"})), "0\n");
    EXPECT_EQ(run(admin(server, {"dance", "now"})),
              "2\nUnrecognized command. type ? for help\n"
              "vorrim-cli: the server does not know this command: dance now\n");

    const auto json = nlohmann::json::parse(run(admin(server, {"--json", "wel"})).substr(2));
    EXPECT_EQ(json["line"], "wel");
    EXPECT_EQ(json["reply"].size(), 4U);
    EXPECT_EQ(json["reply"][3], "(4) added, as it stands");
}

TEST(AdminCli, EveryLineOfAPipeIsACommandAndTheFirstUnknownOneEndsIt) {
    const ServerProcess server(kAccount);
    EXPECT_EQ(run(admin(server, {}), "g\nip 5\n\rg\nvf\ng"),
              "2\nUsers: 0\t\tFiles: 0\nNo such client\nUnrecognized command. type ? for help\n"
              "vorrim-cli: the server does not know this command: ?g\n");
    EXPECT_EQ(run(admin(server, {}), "g\nvf\ng"),
              "0\nUsers: 0\t\tFiles: 0\nUsers: 0\t\tFiles: 0\n");
    EXPECT_EQ(run(admin(server, {})), "0\n");
}

TEST(AdminCli, TheAccountComesFromTheEnvironmentOrAFileAndIsNeverGuessed) {
    const ServerProcess server(kAccount);
    const std::string both = server.folder()->path() / "both";
    const std::string password = server.folder()->path() / "password";
    server.folder()->write("both", "root\r\ntwo words\r\n");
    server.folder()->write("password", "two words");
    const auto only_owner = std::filesystem::perms::owner_read;
    std::filesystem::permissions(both, only_owner);
    std::filesystem::permissions(password, only_owner);
    const std::string good = "0\nUsers: 0\t\tFiles: 0\n";
    EXPECT_EQ(run(admin(server, {"--password-file", both, "g"}, {})), good);
    EXPECT_EQ(run(admin(server, {"--password-file", password, "--user", "root", "g"},
                        {"VORRIM_ADMIN_NAME=x", "VORRIM_ADMIN_PASSWORD=y"})),
              good);

    std::filesystem::permissions(both, only_owner | std::filesystem::perms::others_read);
    EXPECT_EQ(run(admin(server, {"--password-file", both, "g"}, {})),
              good + "vorrim-cli: warning: others may read " + both + " (chmod 600 ends that)\n");
    EXPECT_EQ(run(admin(server, {"--password-file", "/no/such", "g"})),
              "2\nvorrim-cli: cannot read /no/such: No such file or directory\n");
    const Words nobody = admin(server, {"g"}, {"VORRIM_ADMIN_NAME=root"});
    Words alone = {"/usr/bin/setsid", "--wait"};  // no terminal to be asked at
    alone.insert(alone.end(), nobody.begin(), nobody.end());
    EXPECT_EQ(run(alone),
              "2\nvorrim-cli: no name or password: set VORRIM_ADMIN_NAME and "
              "VORRIM_ADMIN_PASSWORD, give --user and --password-file, or use a terminal\n");
}

TEST(AdminCli, APasswordFileIsReadToItsEnd) {
    const ServerProcess server(kAccount);
    const std::string pipe = server.folder()->path() / "pipe";
    const auto from = [&](const std::string& file) {
        return admin(server, {"--password-file", file, "g"}, {"VORRIM_ADMIN_NAME=root"});
    };
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    Socket end(::open(pipe.c_str(), O_RDWR | O_CLOEXEC));
    const auto bring = [&end](std::string_view text) {
        ASSERT_EQ(::write(end.descriptor(), text.data(), text.size()),
                  static_cast<ssize_t>(text.size()));
    };
    Program cli(from(pipe));
    bring("root\n");
    wait_until("the first line is read", [&end] {
        int left = 0;
        return ::ioctl(end.descriptor(), FIONREAD, &left) == 0 && left == 0;
    });
    bring("two words\n");
    end.close();
    EXPECT_EQ(cli.exit(), 0) << cli.errors();

    const auto run_with = [&](const std::string& content) {
        const std::string file = server.folder()->path() / "secret";
        server.folder()->write("secret", content);
        std::filesystem::permissions(
            file, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
        return run(from(file));
    };
    EXPECT_EQ(run_with("two words\n\n"), "0\nUsers: 0\t\tFiles: 0\n");
    const std::string refused = run_with(std::string(5000, 'p'));
    EXPECT_TRUE(refused.ends_with(": it is too long for a name and a password\n")) << refused;
}

TEST(AdminCli, WhatNoMessageCanCarryIsRefusedHere) {
    const ServerProcess server(kAccount);
    EXPECT_EQ(
        run(admin(server, {"g"},
                  {"VORRIM_ADMIN_NAME=" + std::string(65'535, 'n'), "VORRIM_ADMIN_PASSWORD=x"})),
        "2\nvorrim-cli: this name or password is too long\n");
    EXPECT_EQ(run(admin(server, {}), "g\n" + std::string(65'535, 'x') + "\ng\n"),
              "2\nUsers: 0\t\tFiles: 0\nvorrim-cli: this line is too long\n");
}

TEST(AdminCli, WhyItCannotGoOnIsSaid) {
    ServerProcess server(kAccount);
    const std::string refused =
        "2\nvorrim-cli: the server refuses this login: name or password is wrong, remote control "
        "is off, or another administrator is connected\n";
    EXPECT_EQ(run(admin(server, {"g"}, {"VORRIM_ADMIN_NAME=root", "VORRIM_ADMIN_PASSWORD=two"})),
              refused);
    Program watcher(admin(server, {"--watch", "g"}));
    watcher.wait_for_output("Users: 0");
    EXPECT_EQ(run(admin(server, {"g"})), refused);
    const Words later = admin(server, {"g"});
    server.stop(SIGTERM);
    EXPECT_EQ(watcher.exit(), 2);
    EXPECT_EQ(watcher.errors(), "vorrim-cli: the server closed the connection\n");
    const std::string gone = run(later);
    EXPECT_TRUE(gone.starts_with("2\nvorrim-cli: cannot connect to 127.0.0.1:")) << gone;
}

TEST(AdminCli, WatchingShowsWhatTheServerPrintsUntilASignal) {
    const ServerProcess server(kAccount);
    Program watcher(admin(server, {"--watch"}));
    wait_until("the administrator is in", [&] {
        server.type("g\n");
        return !watcher.output().empty();
    });
    watcher.signal(SIGINT);
    EXPECT_EQ(watcher.exit(), 0);
    EXPECT_TRUE(watcher.output().starts_with("Users: 0\t\tFiles: 0\n")) << watcher.output();
}

TEST(AdminCli, AStopSucceedsOnceTheConnectionHasEnded) {
    {
        ServerProcess server({.settings = kAccount, .input = ServerProcess::Input::at_its_end});
        EXPECT_EQ(run(admin(server, {"--stop"})), "0\n");
        EXPECT_EQ(server.stop(SIGTERM), 1);
    }
    ServerProcess server(kAccount);
    EXPECT_EQ(run(admin(server, {"--stop", "--timeout", "0.2"})),
              "2\nvorrim-cli: the server has not stopped within 200.0 ms; its own console may be "
              "waiting for a line (--timeout)\n");
    EXPECT_TRUE(server.running());
    server.type("\n");
    EXPECT_EQ(server.exit(), 1);
}

TEST(AdminCli, ATerminalGetsALineThatSurvivesMessagesAndTheTerminalIsGivenBack) {
    const ServerProcess server(kAccount);
    Terminal terminal;
    Program cli(admin(server, {}, {}), {.terminal = &terminal});
    terminal.wait_for("Administrator's name: ");
    terminal.type("root\n");
    terminal.wait_for("Password: ");
    terminal.type("two words\n");
    terminal.wait_for("127.0.0.1> ");
    EXPECT_EQ(terminal.shown().find("two words"), std::string::npos);
    wait_until("the editor has the terminal", [&] { return !terminal.as_it_was(); });

    terminal.type("v");
    terminal.wait_for("v");
    server.type("g\n");  // prints for the administrator
    terminal.wait_for("Users: 0\t\tFiles: 0\r\n127.0.0.1> v");
    terminal.type("o\r");
    terminal.wait_for("AdminPass: two words\r\n");
    terminal.wait_for("127.0.0.1> ");
    terminal.type("g\rg\r\x04");  // typed ahead
    EXPECT_EQ(cli.exit(), 0);
    EXPECT_TRUE(terminal.as_it_was());
}

}  // namespace
}  // namespace vorrim::wire
