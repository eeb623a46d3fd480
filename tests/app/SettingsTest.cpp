// What the settings may be, what is said of those that are wrong, and what operators read of them.
#include <gtest/gtest.h>
#include <regex>
#include <string>

#include "app/ConfigCheck.h"
#include "app/ServerSettings.h"
#include "app/SettingKeys.h"
#include "tests/ScratchFolder.h"
#include "tests/base/RecordingOutput.h"

namespace vorrim {
namespace {

using namespace std::string_literals;

std::string problems_of(const IniFile& ini) {
    std::string all;
    for (const ConfigProblem& problem : findProblems(ini))
        all += std::to_string(problem.line) + ": " + problem.text + '\n';
    return all;
}

std::string problems_of(const std::string& file) {
    IniFile ini;
    ini.assign(file);
    return problems_of(ini);
}

// The problems of one line of section "server"; it is line 2.
std::string problem_of(const std::string& line) {
    return problems_of("[server]\n" + line + '\n');
}

TEST(ConfigCheck, FindsNothingInAFileThatIsRight) {
    EXPECT_EQ(problems_of("; a remark\n# another = one\n[other]\nx=1\n[server]\nmaxClients= 5000\n"
                          "name=\ndesc=[any] text\npublic=TRUE\nthisIP=10.0.0.1\nseedIP=1.2.3.4\n"
                          "welcome[0]=Hello\nwelcome[1]=\nroom[0]=Lobby\nfilter[0]=(#SIZE > 650)\n"
                          "adminName=a\nadminPass=b\n\n[next]\ny=2"),
              "");
}

TEST(ConfigCheck, NamesAKeyThatDoesNotExistAndTheOneThatWasMeant) {
    EXPECT_EQ(problem_of("bogus=1"), "2: unknown key \"bogus\"\n");
    for (const char* key : {"maxclients", "maxClients ", " MAXCLIENTS", "maxClients[0]"})
        EXPECT_EQ(problem_of(key + "=1"s),
                  "2: unknown key \""s + key + "\": did you mean \"maxClients\"?\n");
    for (const char* key : {"room", "Room[0]", "room[00]", "room[ 0]", "room[-1]", "room[0"})
        EXPECT_EQ(problem_of(key + "=1"s),
                  "2: unknown key \""s + key + "\": did you mean \"room[0]\"?\n");
}

TEST(ConfigCheck, JudgesValues) {
    for (const auto& [line, problem] : {
             std::pair{"console=yes"s, "console must be true or false: \"yes\" is passed over"},
             {"console= true", "console must be true or false: \" true\" is passed over"},
             {"threads=five", "threads is no number: \"five\" counts as 0"},
             {"threads=2 or 3", "threads is no number: \"2 or 3\" counts as 2"},
             {"threads=", "threads is no number: \"\" counts as 0"},
             {"threads=0", "threads is out of range: 1 to 1024"},
             {"port=65532", "port is out of range: 1 to 65531"},
             {"tableSize=99999999999", "tableSize is out of range: 1 to 2147483647"},
             {"seedIP=1.2.3.400", "seedIP is no IPv4 address: \"1.2.3.400\" counts as 1.2.3.144"},
             {"thisIP=localhost", "thisIP is no IPv4 address: \"localhost\" counts as 0.0.0.0"},
             {"adminBind=here", "adminBind is no IPv4 address: \"here\" counts as 127.0.0.1"},
             {"filter[0]=()", "a bad filter is passed over: \"()\""},
             {"name", "\"name\" has no value"},
             {"name=a\0b"s, "a NUL byte: the line ends there"},
             // Together with others.
             {"adminPass=x", "adminName and adminPass only have an effect together"},
             {"port=4663", "port and adminPort are the same"},
             {"minVersion=2001", "minVersion is above maxVersion: nobody can log in"},
         })
        EXPECT_EQ(problem_of(line), "2: "s + problem + '\n');
    EXPECT_EQ(problem_of("port=65531"), "");
}

TEST(ConfigCheck, FindsWhatIsNeverRead) {
    EXPECT_EQ(problems_of("[server]\nroom[1]=b\nroom[0]=a\nroom[3]=d\nroom[4]=e\n"),
              "4: \"room[3]\" is never read: there is no \"room[2]\"\n"
              "5: \"room[4]\" is never read: there is no \"room[2]\"\n");
    EXPECT_EQ(problems_of("port=1\n[server]\nport=2\nport=3\n[next]\nport=4\n[server]\nport=5\n"),
              "1: \"port\" is outside the section \"[server]\": it has no effect\n"
              "4: \"port\" occurs already in line 3, which counts\n"
              "6: \"port\" is outside the section \"[server]\": it has no effect\n"
              "7: a second \"[server]\": what follows has no effect\n"
              "8: \"port\" is outside the section \"[server]\": it has no effect\n");
    EXPECT_EQ(problems_of("[server]\n[a remark\nport=1\n"),
              "2: this line ends the section \"[server]\"\n"
              "3: \"port\" is outside the section \"[server]\": it has no effect\n");
}

TEST(ConfigCheck, SeesWhyTheSectionIsNotFound) {
    EXPECT_EQ(problems_of("[Server] \n"),
              "0: no line \"[server]\": the defaults apply\n"
              "1: the section is not found: the line must be exactly \"[server]\"\n");
    EXPECT_EQ(problems_of("\xEF\xBB\xBF[server]\n"),
              "0: no line \"[server]\": the defaults apply\n"
              "1: a byte order mark before \"[server]\": the section is not found\n");
}

TEST(ConfigCheck, TheReportShowsEffectiveValuesAndWhereTheyComeFrom) {
    const CurrentFolder folder;
    folder.write("my.ini",
                 "[server]\nmaxClients=7x\nadminName=me\nadminPass=secret\nlogFile=true\n");
    const ConfigReport report =
        checkConfig("my.ini", MissingFile::is_a_problem, [] { return 0x04030201U; });
    EXPECT_FALSE(report.good);
    const auto has = [&](const std::string& text) {
        return report.text.find(text) != std::string::npos;
    };
    EXPECT_TRUE(has("\n  maxClients            = 7                          (line 2)\n"))
        << report.text;
    EXPECT_TRUE(has("\n  port                  = 4661                       (default)\n"));
    EXPECT_TRUE(has(
        "\n  thisIP                = 1.2.3.4                    (this host's first address)\n"));
    EXPECT_TRUE(has("\nmy.ini:2: maxClients is no number: \"7x\" counts as 7\n1 problem\n"));
    EXPECT_FALSE(has("secret"));
    EXPECT_FALSE(std::filesystem::exists("vorrim.log")) << "a check leaves no files";
}

// What operators read about the settings, against the table of keys.
std::string file_of_the_tree(const std::string& name) {
    std::string text = ScratchFolder().read(VORRIM_SOURCE_DIR "/" + name);
    EXPECT_FALSE(text.empty()) << name;
    return text;
}

// Of a number or a switch; other keys have none.
std::string default_of(const SettingKey& key) {
    const ServerSettings defaults;
    if (key.number != nullptr) return std::to_string(defaults.*key.number);
    if (key.flag != nullptr) return defaults.*key.flag ? "true" : "false";
    return "";
}

TEST(DocumentedSettings, TheSampleHasEveryKeyAndTheDefaultsThatItNames) {
    const std::string sample = file_of_the_tree("packaging/vorrim.ini");
    IniFile as_installed;
    as_installed.assign(sample);
    EXPECT_EQ(problems_of(as_installed), "");

    // With its commented settings made real: "#port=4661", not "# a remark".
    IniFile complete;
    complete.assign(std::regex_replace(sample, std::regex("\n#(?=[A-Za-z])"), "\n"));
    EXPECT_EQ(problems_of(complete), "");
    constexpr auto kSection = ServerSettings::kSection;
    for (const SettingKey& key : kSettingKeys) {
        const auto value = key.kind == SettingKind::row ? complete.getIndexed(kSection, key.name, 0)
                                                        : complete.getString(kSection, key.name);
        ASSERT_TRUE(value) << key.name;
        const bool chosen_otherwise = as_installed.getString(kSection, key.name).has_value();
        if (!chosen_otherwise && !default_of(key).empty()) {
            EXPECT_EQ(*value, default_of(key)) << key.name;
        }
    }
}

// The manual of the operator has a table with the defaults, the manual page names the keys.
TEST(DocumentedSettings, TheManualsHaveEveryKey) {
    const std::string manual = file_of_the_tree("docs/operations.md");
    const std::string page = file_of_the_tree("packaging/man/vorrim.ini.5");
    for (const SettingKey& key : kSettingKeys) {
        const std::string name =
            std::string(key.name) + (key.kind == SettingKind::row ? "[n]" : "");
        std::string row = "\n| `" + name + "` |";
        // A unit may follow.
        if (const std::string value = default_of(key); !value.empty()) row += ' ' + value + ' ';
        EXPECT_NE(manual.find(row), std::string::npos) << row;
        EXPECT_TRUE(std::regex_search(
            page, std::regex("\n\\.It Cm (\\w+ , )*" +
                             std::regex_replace(name, std::regex("[\\[\\]]"), "\\$&") + "( |\n)")))
            << name;
    }
}

// That the other keys reach what they are for is the wire tests' matter.
TEST(ServerSettings, AnEmptyPasswordIsOneAndTimesBelowZeroAreOff) {
    const CurrentFolder folder;
    ServerSettings settings;
    RecordingOutput output;
    folder.write("vorrim.ini",
                 "[server]\nadminName=A\nadminPass=\nfirstPacketSeconds=1\npacketSeconds=2\n"
                 "unreadSeconds=3\nfloodSeconds=-4\n");
    const LoadedSettings loaded = settings.load("vorrim.ini", output, [] { return 0U; });
    ASSERT_TRUE(loaded.administrator);
    EXPECT_EQ(loaded.administrator->password, "");
    Limits limits;
    Random random(1);
    settings.apply_to(limits, random);
    EXPECT_EQ(limits.first_packet.count(), 1);
    EXPECT_EQ(limits.packet.count(), 2);
    EXPECT_EQ(limits.stalled_send.count(), 3);
    EXPECT_EQ(limits.flood.count(), 0);
}

}  // namespace
}  // namespace vorrim
