// The settings file as the server reads it, seen from outside.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

Names welcome_of(const ServerProcess& server) {
    WireClient client(server);
    return client.login(client_record(hash_of(1), "guest")).texts;
}

TEST(Settings, OnlyLinesOfTheSectionCountAsTheyStand) {
    const ServerProcess server(ServerProcess::Setup{
        .ini = "welcome[0]=before\n[other]\nwelcome[0]=other\n[server]\r\nport={port}\r\n"
               "adminPort={adminPort}\r\nthisIP=1.2.3.4\n;welcome[0]=a remark\n"
               "welcome[0] =not this key\n welcome[0]=nor this\nWelcome[0]=nor this\n"
               "welcome[0]= kept = as it is \nwelcome[0]=second\nport=1\n"
               "welcome[1]\nwelcome[3]=behind a gap\n[]\nwelcome[2]=after"});
    EXPECT_EQ(welcome_of(server),
              (Names{"server version 16.36", " kept = as it is ", "welcome[1]"}));
    EXPECT_NE(server.output().find("Using IP: 1.2.3.4\n\n"), std::string::npos);
}

TEST(Settings, ALineMayBeVeryLongAndClientsReceiveWhatATextCanHold) {
    const std::string longest(65534, 'w');
    const std::string longer = longest + "!";
    const ServerProcess server("welcome[0]=" + longest + "\nwelcome[1]=" + longer +
                               "\nroom[0]=" + longer + "\ndesc=d\nname=" + longer);
    EXPECT_EQ(welcome_of(server), (Names{"server version 16.36", longest, longest}));
    EXPECT_EQ(WireClient(server).ask(hex("1D")),
              hex("39 01 FE FF").raw(longest).add(hex("00 00 02 00")));
    // What clients are told of the server itself.
    const WireClient client(server);
    EXPECT_EQ(client.ask(hex("14")), hex("32 00"));
    const Record own{{},
                     kLocalhost.value(),
                     server.ports().client(),
                     {text_tag(kName, longest), text_tag(kDescription, "d")}};
    EXPECT_EQ(client.receive(), hex("41").add(encode(own)));
}

TEST(Settings, ATableBelowOneIsOfOneWithALineThatSaysSo) {
    for (const char* size : {"tableSize=0", "tableSize=-5", "tableSize=many"}) {
        const ServerProcess server(size);
        EXPECT_NE(server.output().find("tableSize"), std::string::npos) << size;
        const WireClient client = WireClient::high(server);
        client.publish({file(hash_of(2), "song two"), file(hash_of(1), "song one")});
        EXPECT_EQ(names(client.search(anything()).records), (Names{"song two", "song one"}));
    }
}

TEST(MaxClients, OneMoreIsClosedAtOnceUntilAPlaceIsFree) {
    struct Row {
        const char* settings;
        std::size_t places;
    };
    for (const auto& [settings, places] :
         {Row{"maxClients=0", 0}, Row{"maxClients=5", 5}, Row{"", 600}}) {
        SCOPED_TRACE(settings);
        const ServerProcess server(settings);
        std::vector<WireClient> clients;
        for (std::size_t i = 0; i < places; ++i) {
            clients.emplace_back(server);  // none of them logs in
            clients.back().expect_nothing();
        }
        for (int i = 0; i < 3; ++i)
            WireClient(server).expect_closed();
        EXPECT_EQ(server.status().users, places);
        if (places == 0) continue;
        clients.front().expect_nothing();
        clients.pop_back();
        server.wait_for_users(static_cast<std::uint32_t>(places - 1));
        const WireClient next = WireClient::low(server);
        EXPECT_EQ(next.id(), 1U);
        WireClient(server).expect_closed();
    }
}

}  // namespace
}  // namespace vorrim::wire
