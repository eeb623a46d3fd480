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

const std::string kProxyAddress = "127.0.44.9";  // where the proxies connect from

std::string place_of(const PortBlock& ports) {
    return "127.0.0.1:" + std::to_string(ports.client());
}

// The registry of whoever runs the programs.
class UserRegistry final {
public:
    UserRegistry() {
        std::filesystem::create_directory(folder_.path() / "vorrim");
        ::setenv("XDG_CONFIG_HOME", folder_.path().c_str(), 1);
    }
    void set(const std::string& protocol, const std::string& servers,
             const std::string& password = "") const {
        folder_.write("vorrim/registry",
                      "[HKEY_CURRENT_USER\\Software\\Microsoft\\Windows\\CurrentVersion\\"
                      "Internet Settings]\nProxyEnable=1\nProxyServer=" +
                          servers +
                          "\n[HKEY_CURRENT_USER\\Software\\Brannoc\\Proxy]\nprotocol=" + protocol +
                          (password.empty() ? "" : "\nuname=me\npword=" + password) + '\n');
    }

private:
    ScratchFolder folder_;
};

// A server with one file, the programs of a user who has a registry, and a proxy between them.
class ProxyTest : public ::testing::Test {
protected:
    void SetUp() override { holder_.publish({file(hash_of(1), "blue sky.ogg", 2048)}); }
    void TearDown() override {
        if (HasFailure() && proxy_)
            std::cout << "--- proxy\n" << proxy_->output() << proxy_->errors() << "---\n";
    }

    // On a port of its own, accepting connections.
    template <class Command>
    void start_proxy(Command command) {
        proxy_ports_ = PortBlock();
        proxy_ = std::make_unique<Program>(command(std::to_string(proxy_ports_.client())));
        wait_until("the proxy accepts", [this] {
            if (!proxy_->running()) throw WireFailure("the proxy ended");
            return connects(kLocalhost, proxy_ports_.client());
        });
    }

    [[nodiscard]] Words cli(Words words) const {
        words.push_back("--json");
        return wire::cli(std::move(words), server_.ports().client());
    }
    void expect_found() const {
        Program search(cli({"search", "sky"}));
        EXPECT_EQ(search.exit(), 0) << search.errors();
        EXPECT_EQ(search.errors(), "");
        const Json found = Json::parse(search.output(), nullptr, false);
        ASSERT_TRUE(found.is_object());
        EXPECT_EQ(found["results"].at(0)["name"], "blue sky.ogg");
    }
    void expect_no_way_through() const {
        Program search(cli({"search", "sky"}));
        EXPECT_EQ(search.exit(), 2);
        EXPECT_EQ(search.output(), "");
        EXPECT_EQ(search.errors(), "vorrim-cli: cannot connect to " + place_of(server_.ports()) +
                                       ": no way through the proxy " + place_of(proxy_ports_) +
                                       '\n');
    }

    // With and without a password, and with a wrong one. The command starts a proxy on a port,
    // which asks for a password or does not.
    template <class Command>
    void expect_passwords_to_count(const std::string& protocol, const std::string& scheme,
                                   Command command) {
        start_proxy([&](const std::string& port) { return command(port, false); });
        registry_.set(protocol, scheme + place_of(proxy_ports_), "secret");
        expect_found();  // a user that nobody asks for does no harm
        start_proxy([&](const std::string& port) { return command(port, true); });
        registry_.set(protocol, scheme + place_of(proxy_ports_), "secret");
        folder_.write("a.txt", "a");
        Program publish(cli({"publish", folder_.path()}));
        publish.wait_for_output("\n}\n");
        EXPECT_EQ(Json::parse(publish.output())["self"]["address"], kProxyAddress);
        registry_.set(protocol, scheme + place_of(proxy_ports_), "wrong");
        expect_no_way_through();
        registry_.set(protocol, scheme + place_of(proxy_ports_));
        expect_no_way_through();
    }

    const UserRegistry registry_;
    const ServerProcess server_;
    const WireClient holder_ = WireClient::high(server_);
    const ScratchFolder folder_;
    PortBlock proxy_ports_;
    std::unique_ptr<Program> proxy_;
};

#define NEEDS(program, package)       \
    if (::access(program, X_OK) != 0) \
    GTEST_SKIP() << "no " program " here (Debian has it in " package "): this proxy is not tested"

TEST_F(ProxyTest, Https) {
    NEEDS("/usr/bin/tinyproxy", "tinyproxy-bin");
    expect_passwords_to_count("HTTPS", "https=", [this](const std::string& port, bool asks) {
        folder_.write("conf", "Port " + port + "\nListen 127.0.0.1\nBind " + kProxyAddress +
                                  "\nTimeout 60\nConnectPort " +
                                  std::to_string(server_.ports().client()) +
                                  (asks ? "\nBasicAuth me secret\n" : "\n"));
        return Words{"/usr/bin/tinyproxy", "-d", "-c", folder_.path() / "conf"};
    });
}

TEST_F(ProxyTest, Socks5) {
    NEEDS("/usr/bin/microsocks", "microsocks");
    expect_passwords_to_count("SOCKSV5", "socks=", [](const std::string& port, bool asks) {
        Words words = {"/usr/bin/microsocks", "-i", "127.0.0.1", "-p", port, "-b", kProxyAddress};
        if (asks) words.insert(words.end(), {"-u", "me", "-P", "secret"});
        return words;
    });
}

TEST_F(ProxyTest, Socks4) {
    NEEDS("/usr/sbin/danted", "dante-server");
    start_proxy([this](const std::string& port) {
        folder_.write("conf", "logoutput: stderr\ninternal: 127.0.0.1 port = " + port + R"(
external: 127.0.0.1
clientmethod: none
socksmethod: none
client pass { from: 127.0.0.0/8 to: 127.0.0.0/8 }
socks pass { from: 127.0.0.0/8 to: 127.0.0.0/8
             proxyprotocol: socks_v4
             log: connect error }
)");
        return Words{"/usr/sbin/danted", "-f", folder_.path() / "conf", "-p",
                     folder_.path() / "pid"};
    });
    registry_.set("SOCKSV4", "socks=" + place_of(proxy_ports_));
    expect_found();
    // It connects from this host's own address, so its log has to tell.
    const std::string said = proxy_->output() + proxy_->errors();
    EXPECT_NE(said.find("pass(1): tcp/connect"), std::string::npos);
    // It is told to speak version 4 only.
    registry_.set("SOCKSV5", "socks=" + place_of(proxy_ports_));
    expect_no_way_through();
}

TEST_F(ProxyTest, AProxyThatIsGoneIsNotGoneAround) {
    registry_.set("HTTPS", "https=" + place_of(proxy_ports_));
    expect_no_way_through();
    // Datagrams know no proxies.
    Program status(cli({"status", "--udp"}));
    EXPECT_EQ(status.exit(), 0) << status.errors();
}

TEST_F(ProxyTest, AServerWithAProxyListensAndTestsItsClientsDirectly) {
    const std::string gone = place_of(proxy_ports_);
    for (const char* protocol : {"HTTPS", "SOCKSV4", "SOCKSV5"}) {
        SCOPED_TRACE(protocol);
        registry_.set(protocol, "https=" + gone + ";socks=" + gone);
        const ServerProcess server;
        const WireClient client = WireClient::high(server);  // fails for a low identifier
        EXPECT_EQ(server.status(), (Status{1, 0}));
    }
}

}  // namespace
}  // namespace vorrim::wire
