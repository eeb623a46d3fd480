// The settings file as the server reads it, seen from outside.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

using Texts = std::vector<std::string>;

const char kPorts[] = "port={port}\nadminPort={adminPort}\n";
const char kBasics[] = "port={port}\nadminPort={adminPort}\nthisIP=127.0.0.1\n";

ServerProcess::Setup with_file(const std::string& text) {
    return {.ini = text};
}

Texts welcome_of(const ServerProcess& server) {
    WireClient client(server);
    return client.login(client_record(hash_of(1), "guest")).texts;
}

Bytes own_record(const ServerProcess& server) {
    const WireClient client(server);
    if (client.ask(hex("14")) != hex("32 00")) throw WireFailure("the server knows other servers");
    return client.receive();
}

TEST(Settings, TheFirstOfTwoCounts) {
    const ServerProcess server(with_file(std::string("[server]\n") + kBasics +
                                         "welcome[0]=first\nwelcome[0]=second\nport=1\n"));
    EXPECT_EQ(welcome_of(server), (Texts{"server version 16.36", "first"}));
}

TEST(Settings, IndexedKeysEndAtTheFirstGap) {
    const ServerProcess server("welcome[1]=unheard\nwelcome[2]=unheard");
    EXPECT_EQ(welcome_of(server), Texts{"server version 16.36"});
}

TEST(Settings, LinesOutsideTheSectionAreNotRead) {
    const ServerProcess server(
        with_file(std::string("welcome[0]=before\n[other]\nwelcome[0]=other\n"
                              "[server]\n") +
                  kBasics + "[]\nwelcome[0]=after\n"));
    EXPECT_EQ(welcome_of(server), Texts{"server version 16.36"});
}

TEST(Settings, NothingIsTrimmedAndThereAreNoComments) {
    const ServerProcess server(with_file(std::string("[server]\n") + kBasics +
                                         ";welcome[0]=a remark\n"
                                         "welcome[0] =not this key\n"
                                         " welcome[0]=nor this\n"
                                         "Welcome[0]=nor this\n"
                                         "welcome[0]= kept = as it is \n"));
    EXPECT_EQ(welcome_of(server), (Texts{"server version 16.36", " kept = as it is "}));
}

TEST(Settings, ALineWithoutAnEqualSignIsItsOwnValue) {
    const ServerProcess server("welcome[0]");
    EXPECT_EQ(welcome_of(server), (Texts{"server version 16.36", "welcome[0]"}));
}

TEST(Settings, LinesMayEndAsOnWindowsAndTheLastNotAtAll) {
    const ServerProcess server(with_file(
        "[server]\r\nport={port}\r\nadminPort={adminPort}\r\nthisIP=1.2.3.4\r\nwelcome[0]=hello\r\n"
        "\r\nwelcome[1]=last"));
    EXPECT_EQ(welcome_of(server), (Texts{"server version 16.36", "hello", "last"}));
    EXPECT_NE(server.output().find("Using IP: 1.2.3.4\n\n"), std::string::npos);
}

TEST(Settings, ALineMayBeVeryLongAndClientsReceiveWhatATextCanHold) {
    const std::string longest(65534, 'w');
    const std::string longer = longest + "!";
    const ServerProcess server("welcome[0]=" + longest + "\nwelcome[1]=" + longer +
                               "\nroom[0]=" + longer + "\ndesc=d\nname=" + longer);
    EXPECT_EQ(welcome_of(server), (Texts{"server version 16.36", longest, longest}));
    EXPECT_EQ(WireClient(server).ask(hex("1D")),
              hex("39 01 FE FF").raw(longest).add(hex("00 00 02 00")));
    EXPECT_EQ(
        own_record(server),
        hex("41").add(encode(Record{{},
                                    0x0100007F,
                                    server.ports().client(),
                                    {text_tag(kName, longest), text_tag(kDescription, "d")}})));
}

TEST(Settings, BooleansAreTrueOrFalseInAnyLetterCase) {
    EXPECT_NE(ServerProcess("logFile=TRUE").output().find("Using log file.\n"), std::string::npos);
    for (const char* not_true : {"logFile= true", "logFile=true ", "logFile=1", "logFile=yes"})
        EXPECT_EQ(ServerProcess(not_true).output().find("Using log file.\n"), std::string::npos)
            << not_true;
}

TEST(Settings, NumbersMayHaveABlankBeforeAndAnythingBehind) {
    const ServerProcess server("minVersion= 70 or more");
    WireClient taken(server);
    EXPECT_EQ(taken.login(client_record(hash_of(1), "a", 70)).texts.size(), 1U);
    const WireClient refused(server);
    refused.send(login(client_record(hash_of(1), "a", 69)));
    static_cast<void>(refused.receive());
    EXPECT_EQ(refused.receive().from(3).first(8), Bytes().raw("You have"));
}

TEST(Settings, TheServersOwnRecordFollowsThem) {
    const ServerProcess named("thisIP=1.2.3.4\nname=A name\ndesc=A description");
    EXPECT_EQ(own_record(named),
              hex("41").add(encode(
                  Record{{},
                         0x04030201,
                         named.ports().client(),
                         {text_tag(kName, "A name"), text_tag(kDescription, "A description")}})));
    const ServerProcess nameless("thisIP=1.2.3");
    EXPECT_NE(nameless.output().find("Using IP: 0.0.0.0\n\n"), std::string::npos);
    EXPECT_EQ(
        own_record(nameless),
        hex("41").add(encode(Record{
            {}, 0, nameless.ports().client(), {text_tag(kName, ""), text_tag(kDescription, "")}})));
}

TEST(Settings, WithoutAnAddressTheHostsOwnIsTaken) {
    const ServerProcess server(with_file(std::string("[server]\n") + kPorts));
    const std::string output = server.output();
    const std::string_view label = "Using IP: ";
    const auto at = output.find(label);
    ASSERT_NE(at, std::string::npos);
    const std::string shown =
        output.substr(at + label.size(), output.find('\n', at) - at - label.size());
    Reader own(own_record(server).from(17));
    std::string told;
    for (int i = 0; i < 4; ++i)
        told += (i ? "." : "") + std::to_string(own.u8());
    EXPECT_EQ(told, shown);
}

TEST(Settings, ATableBelowOneIsOfOneWithALineThatSaysSo) {
    for (const char* size : {"tableSize=0", "tableSize=-5", "tableSize=many"}) {
        const ServerProcess server(size);
        EXPECT_NE(server.output().find("tableSize"), std::string::npos) << size;
        const WireClient client = WireClient::high(server);
        client.publish({file(hash_of(2), "song two"), file(hash_of(1), "song one")});
        EXPECT_EQ(names(client.search(anything()).records), (Texts{"song two", "song one"}));
        EXPECT_EQ(names(client.search(words("song")).records), (Texts{"song two", "song one"}));
    }
}

TEST(MaxClients, OneMoreIsClosedAtOnceUntilAPlaceIsFree) {
    const ServerProcess server("maxClients=5");
    std::vector<WireClient> clients;
    for (int i = 0; i < 4; ++i)
        clients.push_back(WireClient::low(server));
    clients.emplace_back(server);  // one that has not logged in counts as well
    clients.back().expect_nothing();
    for (int i = 0; i < 3; ++i)
        WireClient(server).expect_closed();
    EXPECT_EQ(server.status().users, 5U);
    for (const WireClient& client : clients)
        client.expect_nothing();

    clients.pop_back();
    server.wait_for_users(4);
    const WireClient next = WireClient::low(server);
    EXPECT_EQ(next.id(), 5U);
    WireClient(server).expect_closed();
}

TEST(MaxClients, TheDefaultIs600) {
    const ServerProcess server;
    std::vector<WireClient> clients;
    for (int i = 0; i < 600; ++i) {
        clients.emplace_back(server);
        clients.back().expect_nothing();
    }
    WireClient(server).expect_closed();
    clients.erase(clients.begin());
    server.wait_for_users(599);
    clients.emplace_back(server);
    clients.back().expect_nothing();
}

TEST(MaxClients, NoneAreAcceptedBelowOne) {
    const ServerProcess server("maxClients=0");
    WireClient(server).expect_closed();
    EXPECT_EQ(server.status().users, 0U);
}

}  // namespace
}  // namespace vorrim::wire
