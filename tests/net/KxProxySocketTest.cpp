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

}  // namespace
}  // namespace vorrim
