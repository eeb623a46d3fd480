#include <gtest/gtest.h>
#include <string>

#include "app/IniFile.h"

namespace vorrim {
namespace {

using namespace std::string_literals;

std::string look_up(const std::string& file, const std::string& key) {
    IniFile ini;
    ini.assign(file);
    return std::string(ini.getString("server", key).value_or("<none>"));
}

TEST(IniFile, IsReadAsItStands) {
    struct Case {
        std::string file, key, value;
    };
    const std::string long_value(3'000'000, 'v');
    const std::string none = "<none>";
    const Case cases[] = {
        // The first line of the section and of the key counts; a second header opens nothing.
        {"[other]\na=x\n[server]\na=first\na=second\n[server]\nb=late\n", "a", "first"},
        {"[server]\n[server]\nb=late\n", "b", none},
        {"a=before\n[Server]\na=0\n[server]\na=1\n", "a", "1"},
        // Nothing is trimmed.
        {"[server]\na =1\n", "a", none},
        {"[server]\na =1\n", "a ", "1"},
        {"[server]\na= b = c \n", "a", " b = c "},
        {"[server]\na=\n", "a", ""},
        {"[server]\nA=1\n", "a", none},
        {"[server]\njust a line\n", "just a line", "just a line"},
        {"[server]\n [x]\n;[x]\n\na=1\n", "a", "1"},
        // A line ends at LF or CR LF, the last at neither, and any at a NUL byte.
        {"[server]\r\na=1\r\nb=2\r\n", "b", "2"},
        {"[server]\na=1\r\r\n", "a", "1\r"},
        {"[server]\na=x\ry\n", "a", "x\ry"},
        {"[server]\na=last\r", "a", "last\r"},
        {"[server]\0junk\na=x\0y\nb=2\n"s, "a", "x"},
        {"[server]\0junk\na=x\0y\nb=2\n"s, "b", "2"},
        {"[server]\n" + std::string(1'000'000, 'k') + "=1\na=" + long_value, "a", long_value},
        {"[server]", "a", none},
        {"", "a", none},
    };
    for (const auto& [file, key, value] : cases)
        EXPECT_EQ(look_up(file, key), value) << file.substr(0, 80);
    for (const char* header : {"[Server]", "[server] ", " [server]", "[server", "server]",
                               "[server]x", "\xEF\xBB\xBF[server]"})
        EXPECT_EQ(look_up(header + "\na=1\n"s, "a"), none) << header;
    for (const char* end : {"[", "[]", "[x]", "[a remark", "[server]"})
        EXPECT_EQ(look_up("[server]\n"s + end + "\na=1\n", "a"), none) << end;
    IniFile ini;
    ini.assign("[]\na=1\n");
    EXPECT_FALSE(ini.getString("", "a"));
}

TEST(IniFile, ValuesAreNumbersSwitchesAndRows) {
    for (const auto& [text, number] : {std::pair{"5", 5},
                                       {"  -7x", -7},
                                       {"+8", 8},
                                       {"", 0},
                                       {"many", 0},
                                       {"0x10", 0},
                                       {"- 1", 0},
                                       {"2147483647", 2147483647}})
        EXPECT_EQ(IniFile::toInt(text), number) << text;
    IniFile ini;
    ini.assign(
        "[server]\nempty=\nword\na=TrUe\nb=FALSE\nc= true\nd=1\nroom[00]=x\nroom[ 0]=y\n"
        "room[0]=z\nroom[10]=ten\n");
    EXPECT_EQ(ini.getInt("server", "empty"), 0);
    EXPECT_EQ(ini.getInt("server", "word"), 0);
    EXPECT_FALSE(ini.getInt("server", "missing"));
    EXPECT_EQ(ini.getBool("server", "a"), true);
    EXPECT_EQ(ini.getBool("server", "b"), false);
    for (const char* key : {"c", "d", "empty", "missing"})
        EXPECT_FALSE(ini.getBool("server", key)) << key;
    EXPECT_EQ(ini.getIndexed("server", "room", 0), "z");
    EXPECT_EQ(ini.getIndexed("server", "room", 10), "ten");
    EXPECT_FALSE(ini.getIndexed("server", "room", 1));
}

}  // namespace
}  // namespace vorrim
