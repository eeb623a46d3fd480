#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "app/ServerSettings.h"
#include "meta/TagNames.h"
#include "tests/app/support.h"

namespace vorrim {
namespace {

using Texts = std::vector<std::string>;

constexpr std::uint32_t kHost = 0x04030201;  // 1.2.3.4

class ServerSettingsTest : public ::testing::Test {
protected:
    // Loads a file with these lines in section "server".
    LoadedSettings load(const std::string& lines) {
        ScratchFolder::write("vorrim.ini", "[server]\n" + lines);
        return load_file("vorrim.ini");
    }
    LoadedSettings load_file(const std::string& name) {
        return settings_.load(name, output_, [] { return kHost; });
    }
    // What loading printed after the line with the folder.
    std::string printed() const { return output_.text.substr(output_.text.find('\n') + 1); }
    Texts welcome() const {
        Texts lines;
        settings_.welcome.for_each([&](const std::string& line) { lines.push_back(line); });
        return lines;
    }

    ScratchFolder folder_;
    ServerSettings settings_;
    RecordingOutput output_;
};

TEST_F(ServerSettingsTest, WithoutAFileTheDefaultsStayAndThereIsNoAddress) {
    const LoadedSettings loaded = load_file("elsewhere.ini");
    EXPECT_EQ(output_.text, "currentDir=" + folder_.path() +
                                "\nCouldn't open elsewhere.ini (using defaults) \n\n");
    EXPECT_EQ(settings_.port, 4661);
    EXPECT_EQ(settings_.Meta::port(), 4661);
    EXPECT_EQ(settings_.maxClients, 600);
    EXPECT_EQ(settings_.threads, 5);
    EXPECT_EQ(settings_.thisIP, 0U);
    EXPECT_EQ(settings_.id(), 0U);
    EXPECT_TRUE(settings_.tags().empty());
    EXPECT_FALSE(settings_.desc);
    EXPECT_EQ(welcome(), Texts{"server version 16.36"});
    EXPECT_TRUE(loaded.rooms.empty());
    EXPECT_TRUE(loaded.filters.empty());
    EXPECT_FALSE(loaded.administrator);
}

TEST_F(ServerSettingsTest, WithAFileTheRecordHasBothTextsAndTheHostsAddress) {
    load("");
    EXPECT_EQ(settings_.tags().size(), 2U);
    EXPECT_EQ(settings_.getTextTag(wire_name(TagId::Name)), "");
    EXPECT_EQ(settings_.getTextTag(wire_name(TagId::Description)), "");
    EXPECT_EQ(settings_.desc, "");
    EXPECT_EQ(settings_.thisIP, kHost);
    EXPECT_EQ(settings_.id(), kHost);
    EXPECT_FALSE(settings_.seedIP);
    EXPECT_EQ(printed(), "");
}

TEST_F(ServerSettingsTest, ABindAddressThatIsNoneNeverMeansEverybody) {
    for (const auto& [text, address] :
         std::vector<std::pair<std::string, std::uint32_t>>{{"0.0.0.0", 0},
                                                            {"10.0.0.1", 0x0100000A},
                                                            {"", 0x0100007F},
                                                            {"localhost", 0x0100007F},
                                                            {"0", 0x0100007F},
                                                            {"256.0.0.0", 0x0100007F}}) {
        load("adminBind=" + text);
        EXPECT_EQ(settings_.adminBind, address) << text;
    }
}

TEST_F(ServerSettingsTest, EveryKeyReachesItsField) {
    const LoadedSettings loaded = load(
        "maxClients=1\nname=N\ndesc=D\npublic=true\nlogFile=true\nconsole=false\nverbose=true\n"
        "port=65540\nkeywordSearch=false\nthisIP=9.8.7.6\nthreads=2\nseedPort=3\nseedIP=1.1.1.1\n"
        "minVersion=4\nmaxVersion=5\ntableSize=6\nadminPort=7\nwelcome[0]=W\nroom[0]=R\n"
        "room[1]=S\nfilter[0]=mp3\nadminName=A\nadminPass=\n");
    EXPECT_EQ(settings_.maxClients, 1);
    EXPECT_EQ(settings_.getTextTag(wire_name(TagId::Name)), "N");
    EXPECT_EQ(settings_.getTextTag(wire_name(TagId::Description)), "D");
    EXPECT_EQ(settings_.desc, "D");
    EXPECT_TRUE(settings_.publicServer);
    EXPECT_TRUE(settings_.logFile);
    EXPECT_FALSE(settings_.console);
    EXPECT_TRUE(output_.verbose());
    EXPECT_EQ(settings_.port, 65540);
    EXPECT_EQ(settings_.Meta::port(), 4) << "a port has 16 bits";
    EXPECT_EQ(settings_.datagramPort(), 8);
    EXPECT_FALSE(settings_.keywordSearch);
    EXPECT_EQ(settings_.thisIP, 0x06070809U);
    EXPECT_EQ(settings_.threads, 2);
    EXPECT_EQ(settings_.seedPort, 3);
    EXPECT_EQ(settings_.seedIP, "1.1.1.1");
    EXPECT_EQ(settings_.minVersion, 4);
    EXPECT_EQ(settings_.maxVersion, 5);
    EXPECT_EQ(settings_.tableSize, 6);
    EXPECT_EQ(settings_.adminPort, 7);
    EXPECT_EQ(welcome(), (Texts{"server version 16.36", "W"}));
    EXPECT_EQ(loaded.rooms, (Texts{"R", "S"}));
    EXPECT_EQ(loaded.filters.size(), 1U);
    ASSERT_TRUE(loaded.administrator);
    EXPECT_EQ(loaded.administrator->name, "A");
    EXPECT_EQ(loaded.administrator->password, "") << "an empty text counts as given";
}

TEST_F(ServerSettingsTest, WhatMakesNoSenseIsSaidOrPassedOver) {
    const LoadedSettings loaded = load(
        "tableSize=-3\nthisIP=server.example\nadminName=A\n"
        "filter[0]=()\nfilter[1]=mp3\nfilter[2]=(a\nfilter[4]=x\n");
    EXPECT_EQ(settings_.tableSize, 1);
    EXPECT_EQ(settings_.thisIP, 0U);
    EXPECT_EQ(loaded.filters.size(), 2U);
    EXPECT_FALSE(loaded.administrator) << "half of one is none";
    EXPECT_EQ(printed(), "tableSize is -3, using 1\nBad filter: ()\n");
}

}  // namespace
}  // namespace vorrim
