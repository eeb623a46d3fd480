// What operators read about the settings, against the table of keys.
#include <cctype>
#include <gtest/gtest.h>
#include <regex>
#include <sstream>
#include <string>

#include "app/ConfigCheck.h"
#include "app/SettingKeys.h"
#include "tests/ScratchFolder.h"

namespace vorrim {
namespace {

std::string file_of_the_tree(const std::string& name) {
    std::string text = ScratchFolder().read(VORRIM_SOURCE_DIR "/" + name);
    EXPECT_FALSE(text.empty()) << name;
    return text;
}

// The sample with its commented settings made real: "#port=4661", not "# a remark".
std::string uncommented(const std::string& text) {
    std::istringstream lines(text);
    std::string result;
    for (std::string line; std::getline(lines, line);) {
        const bool setting = line.size() > 1 && line[0] == '#' &&
                             std::isalpha(static_cast<unsigned char>(line[1])) != 0;
        result += line.substr(setting ? 1 : 0) + '\n';
    }
    return result;
}

std::string problems_of(const IniFile& ini) {
    std::string all;
    for (const ConfigProblem& problem : findProblems(ini))
        all += std::to_string(problem.line) + ": " + problem.text + '\n';
    return all;
}

TEST(DocumentedSettings, TheSampleHasEveryKeyAndTheDefaultsThatItNames) {
    const std::string sample = file_of_the_tree("packaging/vorrim.ini");
    IniFile as_installed;
    as_installed.assign(sample);
    EXPECT_EQ(problems_of(as_installed), "");

    IniFile complete;
    complete.assign(uncommented(sample));
    EXPECT_EQ(problems_of(complete), "");
    const ServerSettings defaults;
    constexpr auto kSection = ServerSettings::kSection;
    for (const SettingKey& key : kSettingKeys) {
        const auto value = key.kind == SettingKind::row ? complete.getIndexed(kSection, key.name, 0)
                                                        : complete.getString(kSection, key.name);
        ASSERT_TRUE(value) << key.name;
        if (as_installed.getString(kSection, key.name)) continue;  // chosen otherwise
        if (key.number != nullptr) {
            EXPECT_EQ(IniFile::toInt(*value), defaults.*key.number) << key.name;
        }
        if (key.flag != nullptr) {
            EXPECT_EQ(IniFile::toBool(*value), defaults.*key.flag) << key.name;
        }
    }
}

// The manual of the operator has a table with the defaults, the manual page names the keys.
TEST(DocumentedSettings, TheManualsHaveEveryKey) {
    const std::string manual = file_of_the_tree("docs/operations.md");
    const std::string page = file_of_the_tree("packaging/man/vorrim.ini.5");
    const ServerSettings defaults;
    for (const SettingKey& key : kSettingKeys) {
        std::string row = "| `" + std::string(key.name);
        row += key.kind == SettingKind::row ? "[n]` |" : "` |";
        // A unit may follow.
        if (key.number != nullptr) row += ' ' + std::to_string(defaults.*key.number) + ' ';
        if (key.flag != nullptr) row += defaults.*key.flag ? " true " : " false ";
        EXPECT_NE(manual.find('\n' + row), std::string::npos) << row;

        const std::string name =
            std::string(key.name) + (key.kind == SettingKind::row ? "[n]" : "");
        EXPECT_TRUE(std::regex_search(
            page, std::regex("\n\\.It Cm (\\w+ , )*" +
                             std::regex_replace(name, std::regex("[\\[\\]]"), "\\$&") + "( |\n)")))
            << name;
    }
}

}  // namespace
}  // namespace vorrim
