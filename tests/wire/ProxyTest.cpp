// vorrim-cli through real proxies, and a server whose user has one configured.
//
//     registry ──► vorrim-cli ──► tinyproxy, microsocks or danted ──► vorrim
//
// tinyproxy and microsocks connect from an address of their own, so that the server's word on who
// has come tells whether the proxy was used.
#include <filesystem>
#include <nlohmann/json.hpp>

#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

using Json = nlohmann::json;
using Words = std::vector<std::string>;

const Address kProxyAddress(127, 0, 44, 9);  // where the proxies connect from

// The registry of whoever runs the programs.
class UserRegistry final {
public:
    UserRegistry() {
        std::filesystem::create_directory(folder_.path() / "vorrim");
        ::setenv("XDG_CONFIG_HOME", folder_.path().c_str(), 1);
    }
    void set(const std::string& protocol, const std::string& servers, const std::string& user = "",
             const std::string& password = "") const {
        folder_.write("vorrim/registry",
                      "[HKEY_CURRENT_USER\\Software\\Microsoft\\Windows\\CurrentVersion\\"
                      "Internet Settings]\nProxyEnable=1\nProxyServer=" +
                          servers + "\n[HKEY_CURRENT_USER\\Software\\Brannoc\\Proxy]\nprotocol=" +
                          protocol + "\nuname=" + user + "\npword=" + password + '\n');
    }

private:
    ScratchFolder folder_;
};

// A proxy on a port of its own, accepting connections.
class Proxy final {
public:
    enum class Kind { tinyproxy, microsocks, danted };

    // Lets through to `allowed` only, where the kind of proxy can say so.
    Proxy(Kind kind, std::uint16_t allowed, const std::string& user = "",
          const std::string& password = "")
        : program_(command(kind, allowed, user, password)) {
        wait_until("the proxy accepts", [this] {
            if (!program_.running()) throw WireFailure("the proxy ended: " + said());
            return connects(kLocalhost, ports_.client());
        });
    }

    [[nodiscard]] std::string place() const {
        return "127.0.0.1:" + std::to_string(ports_.client());
    }
    [[nodiscard]] std::string said() const { return program_.output() + program_.errors(); }

private:
    Words command(Kind kind, std::uint16_t allowed, const std::string& user,
                  const std::string& password) {
        const std::string port = std::to_string(ports_.client());
        if (kind == Kind::microsocks) {
            Words words = {Program::find("microsocks"), "-i", "127.0.0.1", "-p", port, "-b",
                           kProxyAddress.text()};
            if (!user.empty()) words.insert(words.end(), {"-u", user, "-P", password});
            return words;
        }
        const std::string file = (folder_.path() / "conf").string();
        if (kind == Kind::tinyproxy) {
            folder_.write("conf",
                          "Port " + port + "\nListen 127.0.0.1\nBind " + kProxyAddress.text() +
                              "\nTimeout 60\nConnectPort " + std::to_string(allowed) + '\n' +
                              (user.empty() ? "" : "BasicAuth " + user + ' ' + password) + '\n');
            return {Program::find("tinyproxy"), "-d", "-c", file};
        }
        folder_.write("conf", "logoutput: stderr\ninternal: 127.0.0.1 port = " + port + R"(
external: 127.0.0.1
clientmethod: none
socksmethod: none
client pass { from: 127.0.0.0/8 to: 127.0.0.0/8 }
socks pass { from: 127.0.0.0/8 to: 127.0.0.0/8
             proxyprotocol: socks_v4
             log: connect error }
)");
        return {Program::find("danted"), "-f", file, "-p", (folder_.path() / "pid").string()};
    }

    PortBlock ports_;
    ScratchFolder folder_;
    Program program_;
};

// A server with one file, and the programs of a user who has a registry.
class ProxyTest : public ::testing::Test {
protected:
    void TearDown() override {
        if (HasFailure() && proxy_) std::cout << "--- proxy\n" << proxy_->said() << "---\n";
    }

    void start_server() {
        server_ = std::make_unique<ServerProcess>();
        holder_ = std::make_unique<WireClient>(WireClient::high(*server_));
        holder_->publish({file(hash_of(1), "blue sky.ogg", 2048)});
    }
    void start_proxy(Proxy::Kind kind, const std::string& user = "",
                     const std::string& password = "") {
        proxy_ = std::make_unique<Proxy>(kind, server_->ports().client(), user, password);
    }

    [[nodiscard]] Words cli(Words words) const {
        words.push_back("--json");
        return wire::cli(std::move(words), server_->ports().client());
    }

    void expect_found() const {
        Program search(cli({"search", "sky"}));
        EXPECT_EQ(search.exit(), 0) << search.errors();
        EXPECT_EQ(search.errors(), "");
        const Json found = Json::parse(search.output(), nullptr, false);
        ASSERT_TRUE(found.is_object());
        EXPECT_EQ(found["results"].at(0)["name"], "blue sky.ogg");
    }
    // Whom the server sees coming.
    [[nodiscard]] std::string seen_address() const {
        const ScratchFolder folder;
        folder.write("a.txt", "a");
        Program publish(cli({"publish", folder.path()}));
        publish.wait_for_output("\n}\n");
        return Json::parse(publish.output())["self"]["address"];
    }
    void expect_no_way_through(const std::string& place) const {
        Program search(cli({"search", "sky"}));
        EXPECT_EQ(search.exit(), 2);
        EXPECT_EQ(search.output(), "");
        EXPECT_EQ(search.errors(), "vorrim-cli: cannot connect to 127.0.0.1:" +
                                       std::to_string(server_->ports().client()) +
                                       ": no way through the proxy " + place + '\n');
    }

    // With and without a password, and with a wrong one; through a proxy with an address of its
    // own.
    void expect_passwords_to_count(Proxy::Kind kind, const std::string& protocol,
                                   const std::string& place) {
        start_server();
        start_proxy(kind);
        registry_.set(protocol, place + proxy_->place(), "me", "secret");
        expect_found();  // a user that nobody asks for does no harm
        start_proxy(kind, "me", "secret");
        registry_.set(protocol, place + proxy_->place(), "me", "secret");
        EXPECT_EQ(seen_address(), kProxyAddress.text());
        registry_.set(protocol, place + proxy_->place(), "me", "wrong");
        expect_no_way_through(proxy_->place());
        registry_.set(protocol, place + proxy_->place());
        expect_no_way_through(proxy_->place());
    }

    UserRegistry registry_;
    std::unique_ptr<ServerProcess> server_;
    std::unique_ptr<WireClient> holder_;
    std::unique_ptr<Proxy> proxy_;
};

#define NEEDS(program, package)                                      \
    if (Program::find(program).empty())                              \
    GTEST_SKIP() << "no " program " here (Debian has it in " package \
                    "): this proxy is "                              \
                    "not tested"

TEST_F(ProxyTest, Https) {
    NEEDS("tinyproxy", "tinyproxy-bin");
    expect_passwords_to_count(Proxy::Kind::tinyproxy, "HTTPS", "https=");
}

TEST_F(ProxyTest, Socks5) {
    NEEDS("microsocks", "microsocks");
    expect_passwords_to_count(Proxy::Kind::microsocks, "SOCKSV5", "socks=");
}

TEST_F(ProxyTest, Socks4) {
    NEEDS("danted", "dante-server");
    start_server();
    start_proxy(Proxy::Kind::danted);
    registry_.set("SOCKSV4", "socks=" + proxy_->place());
    expect_found();
    // It connects from this host's own address, so its log has to tell.
    EXPECT_NE(proxy_->said().find("pass(1): tcp/connect"), std::string::npos);
    // It is told to speak version 4 only.
    registry_.set("SOCKSV5", "socks=" + proxy_->place());
    expect_no_way_through(proxy_->place());
}

TEST_F(ProxyTest, AProxyThatIsGoneIsNotGoneAround) {
    start_server();
    const PortBlock nobody;
    const std::string place = "127.0.0.1:" + std::to_string(nobody.client());
    registry_.set("HTTPS", "https=" + place);
    expect_no_way_through(place);
    // Datagrams know no proxies.
    Program status(cli({"status", "--udp"}));
    EXPECT_EQ(status.exit(), 0) << status.errors();
}

TEST_F(ProxyTest, AServerWithAProxyListensAndTestsItsClientsDirectly) {
    const PortBlock nobody;
    for (const std::string protocol : {"HTTPS", "SOCKSV4", "SOCKSV5"}) {
        registry_.set(protocol, "https=127.0.0.1:" + std::to_string(nobody.client()) +
                                    ";socks=127.0.0.1:" + std::to_string(nobody.client()));
        start_server();  // fails unless its client gets a high identifier
        EXPECT_EQ(server_->status(), (Status{1, 1}));
        holder_.reset();
        server_.reset();
    }
}

}  // namespace
}  // namespace vorrim::wire
