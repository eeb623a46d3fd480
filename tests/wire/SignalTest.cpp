// What signals do to a running server, and what the state of its log does not.
#include <filesystem>
#include <gtest/gtest.h>
#include <signal.h>
#include <string>
#include <sys/stat.h>

#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

std::vector<std::string> welcomes(const ServerProcess& server) {
    return WireClient(server).login(client_record(hash_of(1), "a")).texts;
}

// The settings of a server on these ports.
std::string settings(const ServerProcess& server, const std::string& rows) {
    return "[server]\nlogFile=true\nport=" + std::to_string(server.ports().client()) +
           "\nmaxClients=0\n" + rows;
}

void wait_for_log(const ServerProcess& server, const std::string& text) {
    wait_until("the log ends with " + text,
               [&] { return server.folder()->read("log").ends_with(text); });
}

TEST(Signals, AHangUpOpensTheLogsAndReadsWelcomesAndFiltersAgain) {
    const ServerProcess server("logFile=true\nwelcome[0]=old\nfilter[0]=spam");
    server.wait_for_prompt();
    server.type("wel 9 typed\ng\n");
    server.wait_for_output("Users:");
    EXPECT_EQ(welcomes(server), (std::vector<std::string>{"server version 16.36", "old", "typed"}));
    const WireClient client = WireClient::low(server);
    client.publish({file(hash_of(1), "spam"), file(hash_of(2), "eggs")});
    client.expect_nothing();
    EXPECT_EQ(server.status().files, 1U);

    const ScratchFolder& folder = *server.folder();
    for (const char* log : {"log", "vorrim.log"})
        std::filesystem::rename(folder.path() / log, folder.path() / (std::string(log) + ".1"));
    folder.write("vorrim.ini",
                 settings(server, "welcome[0]=new\nwelcome[1]=er\nfilter[0]=()\nfilter[1]=eggs"));
    server.signal(SIGHUP);
    wait_for_log(server,
                 "Log files opened again\nBad filter: ()\n"
                 "Settings read again: 3 welcome lines, 1 filters\n");
    EXPECT_EQ(folder.read("log").find("Welcome"), std::string::npos);
    EXPECT_TRUE(folder.has("vorrim.log"));
    EXPECT_EQ(welcomes(server), (std::vector<std::string>{"server version 16.36", "new", "er"}));
    client.publish({file(hash_of(3), "spam"), file(hash_of(4), "eggs")});
    client.expect_nothing();
    EXPECT_EQ(server.status().files, 2U);  // what is published already stays

    // What cannot be read changes nothing.
    std::filesystem::remove(folder.path() / "vorrim.ini");
    std::filesystem::remove(folder.path() / "log");
    std::filesystem::create_directory(folder.path() / "log");
    server.signal(SIGHUP);
    server.wait_for_output(
        "Couldn't open the log files again (the old ones stay in use)\n"
        "Couldn't open vorrim.ini again (settings stay as they are)\n");
    EXPECT_EQ(welcomes(server), (std::vector<std::string>{"server version 16.36", "new", "er"}));
    client.publish({file(hash_of(5), "eggs")});
    client.expect_nothing();
    EXPECT_EQ(server.status().files, 2U);
}

TEST(Signals, ASecondOneEndsItOnTheSpot) {
    ServerProcess server;
    server.signal(SIGSTOP);  // so that both are there when it goes on
    server.signal(SIGINT);
    server.signal(SIGTERM);
    server.signal(SIGCONT);
    wait_until("the server ends", [&] { return !server.running(); });
    EXPECT_EQ(server.stop(SIGKILL), -SIGTERM);
}

TEST(Signals, ALogThatNobodyReadsSlowsNobodyAndStopsNothing) {
    const auto folder = std::make_shared<ScratchFolder>();
    ASSERT_EQ(::mkfifo((folder->path() / "log").c_str(), 0600), 0);
    ASSERT_EQ(::mkfifo((folder->path() / "vorrim.log").c_str(), 0600), 0);
    ServerProcess server(ServerProcess::Setup{
        .settings = "logFile=true\nverbose=true\nconsole=false\nthreads=1", .folder = folder});
    const WireClient client(server);
    constexpr int kLines = 12'000;  // more than the pipe and the queue hold
    Bytes chatter;
    for (int i = 0; i < kLines; ++i)
        chatter.add(packet(hex("17")));
    client.send_raw(chatter);
    client.expect_nothing();
    EXPECT_EQ(server.status().users, 1U);
    server.signal(SIGHUP);
    EXPECT_EQ(server.status().users, 1U);
    EXPECT_EQ(server.stop(SIGTERM), 1);
}

}  // namespace
}  // namespace vorrim::wire
