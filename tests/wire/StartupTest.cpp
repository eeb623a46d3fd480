// Starting and stopping: what the server says, which settings it heeds, which files it leaves, what
// signals do to it, how it ends.
#include <filesystem>
#include <fstream>
#include <future>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/resource.h>

#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

const char kWelcome[] = "Welcome to Vorrim server v16.36.\n";
const char kPrompt[] = "Enter commands at any time (type '?' for help)\n\n> ";

std::string current_folder(const ServerProcess& server) {
    return "currentDir=" + server.folder()->path().string() + '\n';
}

// Whether this thread has a loopback network to itself now, where every port is free.
bool enter_private_network() {
    if (::unshare(CLONE_NEWNET) != 0) return false;
    ifreq loopback{.ifr_ifrn = {"lo"}, .ifr_ifru = {}};
    loopback.ifr_flags = IFF_UP;
    return ::ioctl(Socket::open(SOCK_DGRAM).descriptor(), SIOCSIFFLAGS, &loopback) == 0;
}

TEST(Startup, SaysWhereItIsWhatItIsAndWhoItIsAndNoMore) {
    const ServerProcess server("thisIP=10.20.30.40");
    const WireClient client = WireClient::low(server);
    EXPECT_TRUE(client.answers(hex("17")).empty());  // a message for the verbose only
    EXPECT_EQ(server.output(),
              current_folder(server) + kWelcome + "Using IP: 10.20.30.40\n\n" + kPrompt);
    EXPECT_EQ(server.errors(), "");
    EXPECT_TRUE(server.folder()->has("log"));
    EXPECT_EQ(server.folder()->read("log"), "");
    EXPECT_FALSE(server.folder()->has("vorrim.log"));
}

TEST(Startup, WithoutSettingsItUsesTheDefaults) {
    const auto test = [] {
        if (!enter_private_network()) return false;
        ServerProcess server(
            {.with_ini = false, .ports = std::make_shared<PortBlock>(std::uint16_t{4661})});
        EXPECT_EQ(server.output(), current_folder(server) +
                                       "Couldn't open vorrim.ini (using defaults) \n\n" + kWelcome +
                                       "Using IP: 0.0.0.0\n\n" + kPrompt);
        EXPECT_EQ(server.errors(), "");

        // Its own record has neither name nor description, nor an address.
        const WireClient client(server);
        EXPECT_EQ(client.ask(hex("14")), hex("32 00"));
        EXPECT_EQ(client.receive(), hex("41").fill(20, 0).add(hex("35 12 00 00 00 00")));
        EXPECT_TRUE(connects(kLocalhost, server.ports().admin()));
        return true;
    };
    if (!std::async(std::launch::async, test).get())
        GTEST_SKIP() << "no private network, so the default ports may be in use";
}

TEST(Startup, TheLogHoldsWhatTheConsoleShowsAndKeepsEarlierRuns) {
    const std::string start =
        std::string("Using log file.\n\n") + kWelcome + "Using IP: 127.0.0.1\n\n";
    const auto folder = std::make_shared<ScratchFolder>();
    folder->write("log", "an older line\n");
    std::string log;
    {
        const ServerProcess server(
            {.settings = "logFile=true\nverbose=true\nfilter[0]=()", .folder = folder});
        const WireClient client = WireClient::low(server);
        EXPECT_TRUE(client.answers(hex("17")).empty());
        server.wait_for_output("Unknown msg from Connection: 23\n");
        wait_until("the log has it too",
                   [&] { return folder->read("log").ends_with("Connection: 23\n"); });
        std::string output = server.output();
        EXPECT_TRUE(output.starts_with(current_folder(server) + "Bad filter: ()\n" + start))
            << output;
        output.erase(output.find("> "), 2);  // the console's prompt is no message
        log = folder->read("log");
        EXPECT_EQ(current_folder(server) + log.substr(log.find('\n') + 1), output);
        EXPECT_TRUE(folder->has("vorrim.log"));
    }
    EXPECT_TRUE(log.starts_with("an older line\n"));
    log = folder->read("log");
    ServerProcess server({.settings = "logFile=true\nconsole=false",
                          .ready = ServerProcess::Ready::answering,
                          .folder = folder});
    server.type("q\ny\n");  // nobody reads it
    EXPECT_EQ(server.status(), (Status{0, 0}));
    EXPECT_EQ(server.stop(SIGTERM), 1);
    EXPECT_EQ(server.output(), current_folder(server));  // a console that is off
    EXPECT_EQ(folder->read("log"), log + start);
}

TEST(Startup, WithoutDescriptorsItSaysSoAndEnds) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizers need descriptors of their own for their checks";
#endif
    for (rlim_t descriptors = 5; descriptors < 12; ++descriptors) {
        ServerProcess server({.limit = {{RLIMIT_NOFILE, {descriptors, descriptors}}},
                              .ready = ServerProcess::Ready::at_once});
        EXPECT_EQ(server.exit(), 1) << descriptors;
        EXPECT_NE(server.output().find("Unrecoverable error at"), std::string::npos) << descriptors;
    }
}

TEST(Startup, TheTableOfDescriptorsHasRoomForEveryClientBeforeTheFirstComes) {
    const ServerProcess server("maxClients=3000");
    std::ifstream status("/proc/" + std::to_string(server.pid()) + "/status");
    std::string word;
    while (status >> word && word != "FDSize:")
        continue;
    rlim_t places = 0;
    status >> places;
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_GE(places, std::min<rlim_t>(3000, limit.rlim_max));
}

TEST(Shutdown, ClosesEveryConnectionLeavesWith1AndThePortsServeAgainAtOnce) {
    const auto ports = std::make_shared<PortBlock>();
    auto first = std::make_unique<ServerProcess>(ServerProcess::Setup{.ports = ports});
    const WireClient low = WireClient::low(*first);
    const WireClient half(*first);
    half.send_raw(hex("E3 01"));
    EXPECT_EQ(first->stop(SIGTERM), 1);  // the connections are still in the system's hands
    first.reset();
    const ServerProcess second({.ports = ports});
    EXPECT_EQ(WireClient::low(second).id(), 1U);
    low.expect_closed();
    half.expect_closed();
}

TEST(Doors, ATakenPortIsReportedAndTheOthersServe) {
    for (const int type : {SOCK_STREAM, SOCK_DGRAM}) {
        const bool clients = type == SOCK_STREAM;
        const auto ports = std::make_shared<PortBlock>();
        const Socket holder = Socket::open(type);
        holder.set(SOL_SOCKET, SO_REUSEADDR, int{clients});  // for what an earlier user left behind
        holder.bind(kAnyAddress, clients ? ports->client() : ports->udp());
        if (clients) holder.listen(1);
        using Ready = ServerProcess::Ready;
        const ServerProcess server(
            {.ready = clients ? Ready::answering : Ready::accepting, .ports = ports});
        server.wait_for_output(clients ? "Can't Listen for connections. Please adjust your proxy "
                                         "settings in the options tab.\n"
                                       : "ERROR: couldn't create UDPDoor\n");
        if (clients)
            EXPECT_EQ(server.status(), (Status{0, 0}));
        else
            EXPECT_EQ(WireClient::low(server).id(), 1U);
    }
}

TEST(Threads, NoneServeNobody) {
    for (const char* none : {"threads=0", "threads=-3", "threads="}) {
        const ServerProcess server({.settings = none, .ready = ServerProcess::Ready::accepting});
        const WireClient client(server);  // the system accepts, nobody takes it over
        client.send(find_user(kNobody));
        EXPECT_FALSE(Datagram(server).answers(std::chrono::milliseconds(300))) << none;
        EXPECT_TRUE(client.silent()) << none;
    }
}

TEST(Settings, ALineMayBeVeryLongAndClientsReceiveWhatATextCanHold) {
    const std::string longest(65534, 'w');
    const std::string longer = longest + "!";
    const ServerProcess server("welcome[0]=" + longest + "\nwelcome[1]=" + longer +
                               "\nroom[0]=" + longer + "\ndesc=d\nname=" + longer);
    WireClient client(server);
    EXPECT_EQ(client.login(client_record(hash_of(1), "guest")).texts,
              (Names{"server version 16.36", longest, longest}));
    EXPECT_EQ(client.ask(hex("1D")), hex("39 01 FE FF").raw(longest).add(hex("00 00 02 00")));
    // What clients are told of the server itself.
    EXPECT_EQ(client.ask(hex("14")), hex("32 00"));
    const Record own{{},
                     kLocalhost.value(),
                     server.ports().client(),
                     {text_tag(kName, longest), text_tag(kDescription, "d")}};
    EXPECT_EQ(client.receive(), hex("41").add(own.encode()));
}

TEST(MaxClients, OneMoreIsClosedAtOnceUntilAPlaceIsFree) {
    for (const auto& [settings, places] :
         {std::pair("maxClients=0", 0U), std::pair("maxClients=5", 5U), std::pair("", 600U)}) {
        SCOPED_TRACE(settings);
        const ServerProcess server(settings);
        std::vector<WireClient> clients = strangers(server, places);
        for (int i = 0; i < 3; ++i)
            WireClient(server).expect_closed();
        EXPECT_EQ(server.status().users, places);
        if (places == 0) continue;
        clients.front().expect_nothing();
        clients.pop_back();
        server.wait_for_users(places - 1);
        const WireClient next = WireClient::low(server);
        EXPECT_EQ(next.id(), 1U);
        WireClient(server).expect_closed();
    }
}

Names welcomes(const ServerProcess& server) {
    return WireClient(server).login(client_record(hash_of(1), "a")).texts;
}

TEST(Signals, AHangUpOpensTheLogsAndReadsWelcomesAndFiltersAgain) {
    const ServerProcess server("logFile=true\nwelcome[0]=old\nfilter[0]=spam");
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
                 "[server]\nlogFile=true\nmaxClients=0\nwelcome[0]=new\n"
                 "welcome[1]=er\nfilter[0]=()\nfilter[1]=eggs");
    server.signal(SIGHUP);
    const std::string said =
        "Log files opened again\nBad filter: ()\n"
        "Settings read again: 3 welcome lines, 1 filters\n";
    wait_until("the new log has it", [&] { return folder.read("log").ends_with(said); });
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
