#include <gtest/gtest.h>
#include <string>

#include "app/IniFile.h"
#include "tests/app/support.h"

namespace vorrim {
namespace {

using namespace std::string_literals;

std::string look_up(const std::string& file, const std::string& key) {
    IniFile ini;
    ini.assign(file);
    return std::string(ini.getString("server", key).value_or("<none>"));
}

TEST(IniFile, TheFirstLineOfTheSectionAndOfTheKeyCount) {
    const std::string file =
        "[other]\na=other\n[server]\na=first\na=second\n[server]\nb=late\na=third\n";
    EXPECT_EQ(look_up(file, "a"), "first");
    EXPECT_EQ(look_up(file, "b"), "<none>");
}

TEST(IniFile, OnlyTheExactHeaderOpensTheSection) {
    for (const char* header : {"[Server]", "[server] ", " [server]", "[server", "server]",
                               "[server]x", "\xEF\xBB\xBF[server]"})
        EXPECT_EQ(look_up(header + "\na=1\n"s, "a"), "<none>") << header;
    EXPECT_EQ(look_up("a=before\n[Server]\na=0\n[server]\na=1\n", "a"), "1");
}

TEST(IniFile, AnyBracketAtTheStartOfALineEndsTheSection) {
    for (const char* line : {"[", "[]", "[x]", "[a remark", "[server]"})
        EXPECT_EQ(look_up("[server]\n"s + line + "\na=1\n", "a"), "<none>") << line;
    EXPECT_EQ(look_up("[server]\n [x]\n;[x]\n\na=1\n", "a"), "1");
}

TEST(IniFile, NothingIsTrimmed) {
    EXPECT_EQ(look_up("[server]\na =1\n", "a"), "<none>");
    EXPECT_EQ(look_up("[server]\na =1\n", "a "), "1");
    EXPECT_EQ(look_up("[server]\na= b = c \n", "a"), " b = c ");
    EXPECT_EQ(look_up("[server]\na=\n", "a"), "");
    EXPECT_EQ(look_up("[server]\nA=1\n", "a"), "<none>");
    EXPECT_EQ(look_up("[server]\njust a line\n", "just a line"), "just a line");
}

TEST(IniFile, LinesEndAtLfOrCrLfAndTheLastNeedsNeither) {
    EXPECT_EQ(look_up("[server]\r\na=1\r\nb=2\r\n", "b"), "2");
    EXPECT_EQ(look_up("[server]\na=1\r\r\n", "a"), "1\r");
    EXPECT_EQ(look_up("[server]\na=x\ry\n", "a"), "x\ry");
    EXPECT_EQ(look_up("[server]\na=last", "a"), "last");
    EXPECT_EQ(look_up("[server]\na=last\r", "a"), "last\r");
    EXPECT_EQ(look_up("[server]", "a"), "<none>");
    EXPECT_EQ(look_up("", "a"), "<none>");
}

TEST(IniFile, ALineEndsAtANulByteAndHasNoLimit) {
    EXPECT_EQ(look_up("[server]\0junk\na=x\0y\nb=2\n"s, "a"), "x");
    EXPECT_EQ(look_up("[server]\0junk\na=x\0y\nb=2\n"s, "b"), "2");
    const std::string value(3'000'000, 'v');
    EXPECT_EQ(look_up("[server]\n" + std::string(1'000'000, 'k') + "=1\na=" + value, "a"), value);
}

TEST(IniFile, AnEmptySectionNameFindsNothing) {
    IniFile ini;
    ini.assign("[]\na=1\n");
    EXPECT_FALSE(ini.getString("", "a"));
}

TEST(IniFile, NumbersAreReadAsFarAsTheyGo) {
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
    ini.assign("[server]\nempty=\nword\n");
    EXPECT_EQ(ini.getInt("server", "empty"), 0);
    EXPECT_EQ(ini.getInt("server", "word"), 0);
    EXPECT_FALSE(ini.getInt("server", "missing"));
}

TEST(IniFile, ABooleanIsTrueOrFalseInAnyCaseOrNone) {
    IniFile ini;
    ini.assign("[server]\na=TrUe\nb=FALSE\nc= true\nd=1\ne=\n");
    EXPECT_EQ(ini.getBool("server", "a"), true);
    EXPECT_EQ(ini.getBool("server", "b"), false);
    for (const char* key : {"c", "d", "e", "missing"})
        EXPECT_FALSE(ini.getBool("server", key)) << key;
}

TEST(IniFile, IndexedKeysAreWrittenWithoutBlanksOrZeros) {
    IniFile ini;
    ini.assign("[server]\nroom[00]=x\nroom[ 0]=y\nroom[0]=z\nroom[10]=ten\n");
    EXPECT_EQ(ini.getIndexed("server", "room", 0), "z");
    EXPECT_EQ(ini.getIndexed("server", "room", 10), "ten");
    EXPECT_FALSE(ini.getIndexed("server", "room", 1));
}

TEST(IniFile, WhatCannotBeReadCannotBeOpened) {
    const ScratchFolder folder;
    folder.write("good.ini", "[server]\na=1\n");
    IniFile ini;
    EXPECT_TRUE(ini.open("good.ini"));
    EXPECT_EQ(ini.getString("server", "a"), "1");
    EXPECT_FALSE(ini.open("missing.ini"));
    EXPECT_FALSE(ini.open("."));  // a folder
    EXPECT_FALSE(ini.open(""));
    EXPECT_FALSE(ini.getString("server", "a")) << "the earlier file is forgotten";
}

}  // namespace
}  // namespace vorrim
