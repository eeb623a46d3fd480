// What signals do to a running server.
#include <filesystem>

#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

Names welcomes(const ServerProcess& server) {
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
    EXPECT_EQ(welcomes(server), (Names{"server version 16.36", "old", "typed"}));
    const WireClient client = WireClient::low(server);
    client.publish({file(hash_of(1), "spam"), file(hash_of(2), "eggs")});
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
    EXPECT_EQ(welcomes(server), (Names{"server version 16.36", "new", "er"}));
    client.publish({file(hash_of(3), "spam"), file(hash_of(4), "eggs")});
    EXPECT_EQ(server.status().files, 2U);  // what is published already stays

    // What cannot be read changes nothing.
    std::filesystem::remove(folder.path() / "vorrim.ini");
    std::filesystem::remove(folder.path() / "log");
    std::filesystem::create_directory(folder.path() / "log");
    server.signal(SIGHUP);
    server.wait_for_output(
        "Couldn't open the log files again (the old ones stay in use)\n"
        "Couldn't open vorrim.ini again (settings stay as they are)\n");
    EXPECT_EQ(welcomes(server), (Names{"server version 16.36", "new", "er"}));
    client.publish({file(hash_of(5), "eggs")});
    EXPECT_EQ(server.status().files, 2U);
}

TEST(Signals, ASecondOneEndsItOnTheSpot) {
    ServerProcess server;
    server.signal(SIGSTOP);  // so that both are there when it goes on
    server.signal(SIGINT);
    server.signal(SIGTERM);
    server.signal(SIGCONT);
    static_cast<void>(server.exit());
    EXPECT_EQ(server.stop(SIGKILL), -SIGTERM);
}

}  // namespace
}  // namespace vorrim::wire
