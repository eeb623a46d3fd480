// The user's registry, and which proxy its values select.

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "base/proxy/kx_proxy_settings.h"
#include "platform/registry.h"
#include "tests/ScratchFolder.h"

namespace vorrim {
namespace {

using namespace std::string_literals;
namespace fs = std::filesystem;
using Type = kx_proxy_type;

// A folder that is the user's configuration folder as long as it lives.
class RegistryTest : public ::testing::Test {
protected:
    [[nodiscard]] std::string file() const { return folder_.path() / "vorrim" / "registry"; }
    [[nodiscard]] std::string content() const { return folder_.read("vorrim/registry"); }
    [[nodiscard]] Registry with(const std::string& content) const {
        fs::create_directories(folder_.path() / "vorrim");
        folder_.write("vorrim/registry", content);
        return Registry(file());
    }

    const ScratchFolder folder_;
};

TEST_F(RegistryTest, ReadsValuesOfTheirKeyWhateverIsWrittenAroundThem) {
    const Registry registry = with(
        "stray=0\n"
        "# [A]\n"
        "  [ A ]  \r\n"
        " First = one two \r\n"
        "empty=\n"
        ";First=not me\n"
        "quoted=\"  kept  \"\n"
        "half=\"\n"
        "equals=a=b\n"
        "FIRST=second\n"
        "nonsense\n"
        "=nameless\n"
        "[B]\n"
        "first=other\n"
        "[a]\n"
        "last=here");
    EXPECT_EQ(registry.text("a", "first"), "one two");
    EXPECT_EQ(registry.text("A", "empty"), "");
    EXPECT_EQ(registry.text("A", "quoted"), "  kept  ");
    EXPECT_EQ(registry.text("A", "half"), "\"");
    EXPECT_EQ(registry.text("A", "equals"), "a=b");
    EXPECT_EQ(registry.text("B", "First"), "other");
    EXPECT_EQ(registry.text("A", "last"), "here");
    EXPECT_EQ(registry.text("A", "stray"), std::nullopt);
    EXPECT_EQ(registry.text("C", "first"), std::nullopt);
}

TEST_F(RegistryTest, ANumberIsDecimalAndHas32Bits) {
    const Registry registry = with(
        "[K]\nzero=0\nmost=4294967295\ntoo much=4294967296\nsigned=-1\ntext=yes\nnone=\ntail=1x\n");
    EXPECT_EQ(registry.number("K", "zero"), 0U);
    EXPECT_EQ(registry.number("K", "most"), 0xFFFFFFFFU);
    for (const char* name : {"too much", "signed", "text", "none", "tail", "missing"})
        EXPECT_EQ(registry.number("K", name), std::nullopt) << name;
}

TEST_F(RegistryTest, AFileThatCannotBeReadIsAnEmptyRegistry) {
    const std::string value = "[K]\nname=text\n";
    const std::string remark(Registry::kMostBytes - value.size() - 1, '#');
    EXPECT_EQ(with(value + remark + '\n').text("K", "name"), "text");
    EXPECT_EQ(with(value + remark + "#\n").text("K", "name"), std::nullopt);
    EXPECT_EQ(Registry(folder_.path()).text("K", "name"), std::nullopt);
    EXPECT_EQ(Registry(folder_.path() / "nothing").text("K", "name"), std::nullopt);
    EXPECT_EQ(Registry("").text("K", "name"), std::nullopt);
    ASSERT_EQ(::mkfifo((folder_.path() / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(Registry(folder_.path() / "pipe").text("K", "name"), std::nullopt);
}

TEST_F(RegistryTest, StoringKeepsEveryOtherLineAndTheSecretsOfTheUser) {
    Registry registry(file());
    EXPECT_TRUE(registry.set_text("K", "name", "text"));
    EXPECT_EQ(content(), "[K]\nname=text\n");
    struct stat status {};
    ASSERT_EQ(::stat(file().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);

    registry = with("# mine\n[K]\nname=old\nother=1\n[L]\n");
    for (const std::string& text : {""s, " blanks "s, "\"quoted\""s, "a \"b\" c"s, "plain"s}) {
        EXPECT_TRUE(registry.set_text("k", "NAME", text));
        EXPECT_EQ(Registry(file()).text("K", "name"), text);
    }
    EXPECT_EQ(content(), "# mine\n[K]\nNAME=plain\nother=1\n[L]\n");
    EXPECT_TRUE(registry.set_text("L", "new", "2"));
    EXPECT_TRUE(registry.set_text("M", "newer", "3"));
    EXPECT_EQ(content(), "# mine\n[K]\nNAME=plain\nother=1\n[L]\nnew=2\n\n[M]\nnewer=3\n");

    for (const std::string& text : {"a\nb"s, "a\rb"s, "a\0b"s, std::string(70'000, 'x')})
        EXPECT_FALSE(registry.set_text("K", "name", text));
    EXPECT_EQ(registry.text("K", "name"), "plain");
    const std::string too_long(Registry::kMostBytes + 1, '#');
    EXPECT_FALSE(with(too_long).set_text("K", "name", "text"));
    EXPECT_EQ(content(), too_long);
    EXPECT_FALSE(Registry("").set_text("K", "name", "text"));
    EXPECT_FALSE(Registry("/proc/vorrim/registry").set_text("K", "name", "text"));
}

TEST_F(RegistryTest, TheProxyIsSelectedByProtocol) {
    struct Case {
        const char* protocol;  // null: no such value
        const char* servers;   // null: no such value
        Type type;
        const char* host;
        std::int32_t port;
    };
    const std::string longest = "https=p;x=" + std::string(256 - 10, 'x');
    const std::string longer = longest + 'x';
    const std::vector<Case> cases = {
        {nullptr, nullptr, Type::https, "", 3128},
        {nullptr, "https=p:8080", Type::https, "p", 8080},
        {"HTTPS", "https=p", Type::https, "p", 3128},
        {"https", "HTTPS=p", Type::https, "p", 3128},
        {"HTTPS", "http=a:1;https=b:2;https=c:3", Type::https, "b", 2},
        // "socks" alone is the version asked for, or version 5.
        {"SOCKSV4", "socks=p", Type::socks4, "p", 1080},
        {"SOCKSV5", "socks=p:99", Type::socks5, "p", 99},
        {"HTTPS", "Socks=p", Type::socks5, "p", 1080},
        {"HTTPS", "https=a;socks=b", Type::https, "a", 3128},
        {"socksv4", "https=a;SOCKS=b", Type::socks4, "b", 1080},
        {"SOCKSV4", "socksv5=p", Type::socks5, "p", 1080},
        {"SOCKSV4", "socksv5=a;socksv4=b", Type::socks4, "b", 1080},
        // What is asked for by another name is no proxy that we can speak to.
        {"socksx", "socks=p", Type::none, "p", 1080},
        {"ftp", "ftp=p:21", Type::none, "p", 21},
        {"ftp", "https=p", Type::https, "", 3128},
        {"", "https=p", Type::https, "", 3128},
        // Entries without a protocol add nothing.
        {"HTTPS", "p:8080", Type::https, "", 3128},
        {"HTTPS", ";;https=p;;", Type::https, "p", 3128},
        {"HTTPS", "https=p:", Type::https, "p", 0},
        {"HTTPS", "https=p:-7:8", Type::https, "p", -7},
        {"HTTPS", "https=", Type::https, "", 3128},
        {"HTTPS", "https=p=q:5", Type::https, "p=q", 5},
        {"HTTPS", longest.c_str(), Type::https, "p", 3128},
        {"HTTPS", longer.c_str(), Type::https, "", 3128},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.protocol != nullptr ? c.protocol : "-") + ' ' +
                     (c.servers != nullptr ? c.servers : "-"));
        for (const bool enabled : {true, false}) {
            std::string text =
                "[HKEY_CURRENT_USER\\Software\\Brannoc\\Proxy]\n"
                "uname=me\npword=secret\n";
            if (c.protocol != nullptr) text += "protocol="s + c.protocol + '\n';
            text +=
                "[HKEY_CURRENT_USER\\Software\\Microsoft\\Windows\\CurrentVersion\\"
                "Internet Settings]\n";
            if (c.servers != nullptr) text += "ProxyServer="s + c.servers + '\n';
            text += enabled ? "ProxyEnable=1\n" : "ProxyEnable=0\n";
            const Registry registry = with(text);
            const kx_proxy_settings settings = kx_read_proxy_settings(registry);
            EXPECT_EQ(settings.type, enabled ? c.type : Type::none);
            EXPECT_EQ(settings.host, c.host);
            EXPECT_EQ(settings.port, c.port);
            EXPECT_EQ(settings.user, "me");
            EXPECT_EQ(settings.password, "secret");
            EXPECT_FALSE(settings.address);
            EXPECT_EQ(content(), text);
        }
    }
}

}  // namespace
}  // namespace vorrim
