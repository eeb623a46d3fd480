#include <gtest/gtest.h>
#include <string>

#include "app/ConfigCheck.h"
#include "tests/app/CurrentFolder.h"

namespace vorrim {
namespace {

using namespace std::string_literals;

std::string problems_of(const std::string& file) {
    IniFile ini;
    ini.assign(file);
    std::string all;
    for (const ConfigProblem& problem : findProblems(ini))
        all += std::to_string(problem.line) + ": " + problem.text + '\n';
    return all;
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
    EXPECT_EQ(problem_of("console=yes"),
              "2: console must be true or false: \"yes\" is passed over\n");
    EXPECT_EQ(problem_of("console= true").substr(0, 10), "2: console");
    EXPECT_EQ(problem_of("threads=five"), "2: threads is no number: \"five\" counts as 0\n");
    EXPECT_EQ(problem_of("threads=2 or 3"), "2: threads is no number: \"2 or 3\" counts as 2\n");
    EXPECT_EQ(problem_of("threads="), "2: threads is no number: \"\" counts as 0\n");
    EXPECT_EQ(problem_of("threads=0"), "2: threads is out of range: 1 to 1024\n");
    EXPECT_EQ(problem_of("port=65532"), "2: port is out of range: 1 to 65531\n");
    EXPECT_EQ(problem_of("port=65531"), "");
    EXPECT_EQ(problem_of("tableSize=99999999999").substr(0, 28), "2: tableSize is out of range");
    EXPECT_EQ(problem_of("seedIP=1.2.3.400"),
              "2: seedIP is no IPv4 address: \"1.2.3.400\" counts as 1.2.3.144\n");
    EXPECT_EQ(problem_of("thisIP=localhost"),
              "2: thisIP is no IPv4 address: \"localhost\" counts as 0.0.0.0\n");
    EXPECT_EQ(problem_of("adminBind=localhost"),
              "2: adminBind is no IPv4 address: \"localhost\" counts as 127.0.0.1\n");
    EXPECT_EQ(problem_of("filter[0]=()"), "2: a bad filter is passed over: \"()\"\n");
    EXPECT_EQ(problem_of("name"), "2: \"name\" has no value\n");
    EXPECT_EQ(problem_of("name=a\0b"s), "2: a NUL byte: the line ends there\n");
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

TEST(ConfigCheck, JudgesSettingsTogether) {
    EXPECT_EQ(problem_of("adminPass=x"),
              "2: adminName and adminPass only have an effect together\n");
    EXPECT_EQ(problem_of("port=4663"), "2: port and adminPort are the same\n");
    EXPECT_EQ(problem_of("minVersion=2001"),
              "2: minVersion is above maxVersion: nobody can log in\n");
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

}  // namespace
}  // namespace vorrim
