#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "app/ServerSettings.h"
#include "meta/TagNames.h"
#include "tests/app/CurrentFolder.h"
#include "tests/base/RecordingOutput.h"

namespace vorrim {
namespace {

using Texts = std::vector<std::string>;

TEST(ServerSettings, EveryKeyReachesItsField) {
    const CurrentFolder folder;
    ServerSettings settings;
    testing::RecordingOutput output;
    folder.write(
        "vorrim.ini",
        "[server]\n"
        "maxClients=1\nname=N\ndesc=D\npublic=true\nlogFile=true\nconsole=false\nverbose=true\n"
        "port=65540\nkeywordSearch=false\nthisIP=9.8.7.6\nthreads=2\nseedPort=3\nseedIP=1.1.1.1\n"
        "minVersion=4\nmaxVersion=5\ntableSize=6\nadminPort=7\nwelcome[0]=W\nroom[0]=R\n"
        "room[1]=S\nfilter[0]=mp3\nadminName=A\nadminPass=\n");
    const LoadedSettings loaded = settings.load("vorrim.ini", output, [] { return 0U; });
    EXPECT_EQ(settings.maxClients, 1);
    EXPECT_EQ(settings.getTextTag(wire_name(TagId::Name)), "N");
    EXPECT_EQ(settings.getTextTag(wire_name(TagId::Description)), "D");
    EXPECT_EQ(settings.desc, "D");
    EXPECT_TRUE(settings.publicServer);
    EXPECT_TRUE(settings.logFile);
    EXPECT_FALSE(settings.console);
    EXPECT_TRUE(output.verbose());
    EXPECT_EQ(settings.port, 65540);
    EXPECT_EQ(settings.Meta::port(), 4) << "a port has 16 bits";
    EXPECT_EQ(settings.datagramPort(), 8);
    EXPECT_FALSE(settings.keywordSearch);
    EXPECT_EQ(settings.thisIP, 0x06070809U);
    EXPECT_EQ(settings.threads, 2);
    EXPECT_EQ(settings.seedPort, 3);
    EXPECT_EQ(settings.seedIP, "1.1.1.1");
    EXPECT_EQ(settings.minVersion, 4);
    EXPECT_EQ(settings.maxVersion, 5);
    EXPECT_EQ(settings.tableSize, 6);
    EXPECT_EQ(settings.adminPort, 7);
    Texts welcome;
    settings.welcome.for_each([&](const std::string& line) { welcome.push_back(line); });
    EXPECT_EQ(welcome, (Texts{"server version 16.36", "W"}));
    EXPECT_EQ(loaded.rooms, (Texts{"R", "S"}));
    EXPECT_EQ(loaded.filters.size(), 1U);
    ASSERT_TRUE(loaded.administrator);
    EXPECT_EQ(loaded.administrator->name, "A");
    EXPECT_EQ(loaded.administrator->password, "") << "an empty text counts as given";
}

TEST(ServerSettings, TheSecondsOfTheLimitsReachTheirFields) {
    LimitSettings settings;
    settings.firstPacketSeconds = 1;
    settings.packetSeconds = 2;
    settings.unreadSeconds = 3;
    settings.floodSeconds = -4;
    Limits limits;
    Random random(1);
    settings.apply_to(limits, random);
    EXPECT_EQ(limits.first_packet.count(), 1);
    EXPECT_EQ(limits.packet.count(), 2);
    EXPECT_EQ(limits.stalled_send.count(), 3);
    EXPECT_EQ(limits.flood.count(), 0) << "below zero is off";
}

}  // namespace
}  // namespace vorrim
