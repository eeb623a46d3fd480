// Connections through a proxy, and the ones that stay direct.

#include <array>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <thread>
#include <utility>

#include "base/file/kx_memory_file.h"
#include "net/kx_named_address.h"
#include "net/kx_net.h"
#include "net/kx_proxy_socket.h"
#include "net/kx_tcpip_socket.h"

namespace vorrim {
namespace {

using namespace std::string_literals;

constexpr std::uint32_t kLoopback = 0x0100007F;
constexpr std::uint32_t kAll = kReadable | kWritable | kException;
constexpr int kPatience = 20'000;  // ms; only failures take this long

const std::string kSocks4Granted = "\0\x5A\x12\x35\x0A\0\0\x01"s;

std::string printed(const kx_net_address& address) {
    kx_memory_file text(64);
    address.print(text);
    return {reinterpret_cast<const char*>(text.contents().data()), text.contents().size()};
}

void say(kx_net_socket& to, std::string_view bytes) {
    ASSERT_EQ(to.write(bytes.data(), static_cast<std::uint32_t>(bytes.size())),
              static_cast<std::int32_t>(bytes.size()));
}

std::string hear(kx_net_socket& from) {
    std::array<char, 2048> room{};
    if (from.wait_ready(kReadable, kPatience) == 0) return "nothing came";
    const std::int32_t count = from.read(room.data(), room.size());
    return count < 0 ? "closed" : std::string(room.data(), static_cast<std::size_t>(count));
}

kx_proxy_settings settings(kx_proxy_type type, std::string host = "127.0.0.1",
                           std::uint16_t port = 1) {
    return {type, std::move(host), port, "", "", {}};
}

std::unique_ptr<kx_net_socket> listening(kx_net_protocol& net) {
    auto door = net.listen_at(kx_ip_address(kLoopback, 0), 0, SocketType::stream);
    EXPECT_NE(door, nullptr);
    return door;
}

std::unique_ptr<kx_net_socket> accepted(kx_net_socket& door) {
    std::unique_ptr<kx_net_socket> visitor;
    EXPECT_NE(door.wait_ready(kReadable, kPatience), 0U);
    EXPECT_EQ(door.accept(visitor), AcceptResult::accepted);
    return visitor;
}

// A proxy socket on one end of a pair and the proxy on the other.
class ProxySocket : public ::testing::Test {
protected:
    void make(kx_proxy_type type, kx_proxy_command command = kx_proxy_command::connect) {
        std::array<int, 2> handles{};
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, handles.data()), 0);
        proxy_ = std::make_unique<kx_tcpip_socket>(handles[1], SocketType::stream);
        socket_ = std::make_unique<kx_proxy_socket>(
            std::make_unique<kx_tcpip_socket>(handles[0], SocketType::stream), settings(type),
            kx_ip_address(0xC800000A, 4661), command);
    }

    std::unique_ptr<kx_tcpip_socket> proxy_;
    std::unique_ptr<kx_proxy_socket> socket_;
};

TEST_F(ProxySocket, NothingMovesUntilTheConnectionStands) {
    make(kx_proxy_type::socks4);
    std::array<char, 16> room{};
    const iovec piece{room.data(), room.size()};
    const auto nothing_moves = [&] {
        EXPECT_EQ(socket_->read(room.data(), room.size()), 0);
        EXPECT_EQ(socket_->write("x", 1), 0);
        EXPECT_EQ(socket_->write_gathered({&piece, 1}), 0);
    };
    nothing_moves();
    say(*proxy_, kSocks4Granted + "greetings");
    nothing_moves();
    EXPECT_EQ(socket_->wait_ready(kAll, kPatience), kWritable);
    EXPECT_EQ(hear(*proxy_), "\x04\x01\x12\x35\x0A\0\0\xC8\0"s);
    EXPECT_EQ(hear(*socket_), "greetings");
    say(*socket_, "hello");
    EXPECT_EQ(hear(*proxy_), "hello");
    // From now on it waits like any socket, and not at all when it is given no time.
    EXPECT_EQ(socket_->wait_ready(kReadable, 0), 0U);
    EXPECT_EQ(socket_->wait_ready(kReadable | kWritable, 0), kWritable);
    proxy_.reset();
    EXPECT_EQ(hear(*socket_), "closed");
}

TEST_F(ProxySocket, AnHttpsConnectionIsWaitedForAsAskedOnceItStands) {
    make(kx_proxy_type::https);
    say(*proxy_, "HTTP/1.0 200 OK\r\n\r\nfirst");
    EXPECT_EQ(socket_->wait_ready(kReadable, kPatience), kReadable);
    EXPECT_EQ(hear(*socket_), "first");
    EXPECT_EQ(hear(*proxy_).rfind("CONNECT 10.0.0.200:4661 HTTP/1.0\r\n", 0), 0U);
}

TEST_F(ProxySocket, AFailureIsAnExceptionWhateverElseIsAsked) {
    make(kx_proxy_type::https);
    say(*proxy_, "HTTP/1.0 407 Who are you?\r\n\r\n");
    EXPECT_EQ(socket_->wait_ready(kAll, kPatience), kException);
    EXPECT_EQ(socket_->wait_ready(kReadable | kWritable, kPatience), 0U);
    EXPECT_EQ(socket_->state(), kx_proxy_state::failed);
    EXPECT_EQ(socket_->write("x", 1), 0);
}

TEST_F(ProxySocket, ABindIsWritableWhenItListensAndReadableWhenThePeerHasCome) {
    make(kx_proxy_type::socks4, kx_proxy_command::bind);
    say(*proxy_, kSocks4Granted);
    EXPECT_EQ(socket_->wait_ready(kAll, kPatience), kWritable);
    EXPECT_EQ(socket_->target().endpoint.port, 0x1235);
    say(*proxy_, kSocks4Granted);
    EXPECT_EQ(socket_->wait_ready(kAll, kPatience), kReadable);
    EXPECT_EQ(socket_->state(), kx_proxy_state::bound);
}

TEST_F(ProxySocket, AProgressCallbackBreaksTheNegotiationOff) {
    make(kx_proxy_type::socks4);
    int reports = 0;
    const auto twice = [&](float share) {
        EXPECT_GT(share, 0.0F);
        EXPECT_LT(share, 1.0F);
        return ++reports < 2;
    };
    EXPECT_EQ(socket_->wait_ready(kAll, kPatience, twice), kException);
    EXPECT_EQ(reports, 2);
    EXPECT_EQ(socket_->state(), kx_proxy_state::failed);
}

TEST(NamedAddress, IsANameAndAPort) {
    kx_named_address address("server.example\0hidden"s);
    address.set_port(4661);
    EXPECT_EQ(printed(address), "server.example");
    const std::unique_ptr<kx_net_address> copy = address.clone();
    EXPECT_EQ(printed(*copy), "server.example");
    EXPECT_EQ(copy->get_port(), 4661);
    EXPECT_FALSE(copy->same_host(address));
    EXPECT_FALSE(kx_ip_address(kLoopback, 4661).same_host(address));
    kx_memory_file raw(8);
    address.write_raw(raw);
    EXPECT_EQ(raw.size(), 4U);
}

TEST(Proxied, OnlyProxiesThatLookNamesUpGetNames) {
    for (const auto type : {kx_proxy_type::none, kx_proxy_type::socks4}) {
        const auto net = kx_create_tcpip_protocol(settings(type));
        const auto address = net->resolve("127.0.0.1");
        ASSERT_NE(dynamic_cast<const kx_ip_address*>(address.get()), nullptr);
    }
    for (const auto type : {kx_proxy_type::socks5, kx_proxy_type::https}) {
        const auto net = kx_create_tcpip_protocol(settings(type));
        for (const std::string& text : {"127.0.0.1"s, "no such host!"s, std::string(300, 'x')}) {
            const auto address = net->resolve(text);
            ASSERT_NE(dynamic_cast<const kx_named_address*>(address.get()), nullptr);
            EXPECT_EQ(printed(*address), text);
            EXPECT_EQ(address->get_port(), 0);
        }
    }
}

TEST(Proxied, ABlockingConnectGoesThroughTheProxy) {
    kx_tcpip_protocol direct;
    const auto door = listening(direct);
    const std::uint16_t port = door->local_address()->get_port();
    const auto net = kx_create_tcpip_protocol(settings(kx_proxy_type::https, "localhost", port));
    EXPECT_EQ(net->proxy_name(), "localhost:" + std::to_string(port));
    const auto target = net->resolve("server.example");
    target->set_port(4661);
    for (const std::string& reply : {"HTTP/1.0 200 OK\r\n\r\nhello"s, "HTTP/1.0 403 No\r\n\r\n"s}) {
        std::unique_ptr<kx_net_socket> connected;
        std::thread connecting(
            [&] { connected = net->connect(*target, SocketType::stream, ConnectMode::blocking); });
        const auto proxy = accepted(*door);
        EXPECT_EQ(hear(*proxy).rfind("CONNECT server.example:4661 HTTP/1.0\r\n", 0), 0U);
        say(*proxy, reply);
        connecting.join();
        ASSERT_EQ(connected != nullptr, reply.ends_with("hello"));
        if (connected) {
            EXPECT_EQ(hear(*connected), "hello");
        }
    }
}

TEST(Proxied, EverythingElseStaysDirect) {
    kx_tcpip_protocol direct;
    for (const auto type : {kx_proxy_type::socks4, kx_proxy_type::socks5, kx_proxy_type::https}) {
        // Nobody listens on port 1.
        const auto net = kx_create_tcpip_protocol(settings(type));
        const auto door = listening(*net);
        const auto address = net->resolve("127.0.0.1");
        address->set_port(door->local_address()->get_port());
        const auto connecting =
            net->connect(*address, SocketType::stream, ConnectMode::non_blocking);
        ASSERT_NE(connecting, nullptr);
        const auto visitor = accepted(*door);
        EXPECT_TRUE(connecting->connected());
        say(*visitor, "hello");
        EXPECT_EQ(hear(*connecting), "hello");
        EXPECT_NE(net->connect(*address, SocketType::datagram, ConnectMode::blocking), nullptr);

        EXPECT_EQ(net->connect(*address, SocketType::stream, ConnectMode::blocking), nullptr);
    }
}

TEST(Proxied, AProxyThatIsNowhereFailsTheConnect) {
    const kx_ip_address target(kLoopback, 4661);
    for (const std::int32_t port : {0, -1, 65'536, 0x10001}) {
        kx_proxy_settings nowhere = settings(kx_proxy_type::https);
        nowhere.port = port;
        const auto net = kx_create_tcpip_protocol(nowhere);
        EXPECT_EQ(net->connect(target, SocketType::stream, ConnectMode::blocking), nullptr);
    }
    const auto net = kx_create_tcpip_protocol(settings(kx_proxy_type::https, ""));
    EXPECT_EQ(net->connect(target, SocketType::stream, ConnectMode::blocking), nullptr);
}

}  // namespace
}  // namespace vorrim
