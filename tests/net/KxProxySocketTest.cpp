// A connection through a proxy, as whoever uses it sees it. That connects go through a proxy is the
// wire tests' matter.

#include <array>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <string_view>
#include <sys/socket.h>

#include "net/kx_proxy_socket.h"
#include "net/kx_socket_set.h"
#include "net/kx_tcpip_socket.h"

namespace vorrim {
namespace {

using namespace std::string_literals;

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

// A proxy socket on one end of a pair and the proxy on the other.
class ProxySocket : public ::testing::Test {
protected:
    void make(kx_proxy_type type) {
        std::array<int, 2> handles{};
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, handles.data()), 0);
        proxy_ = std::make_unique<kx_tcpip_socket>(handles[1], SocketType::stream);
        socket_ = std::make_unique<kx_proxy_socket>(
            std::make_unique<kx_tcpip_socket>(handles[0], SocketType::stream),
            kx_proxy_settings{.type = type}, kx_ip_address(0xC800000A, 4661),
            kx_proxy_command::connect);
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

TEST_F(ProxySocket, AFailureIsAnExceptionAndNothingElse) {
    make(kx_proxy_type::https);
    say(*proxy_, "HTTP/1.0 407 Who are you?\r\n\r\n");
    EXPECT_EQ(socket_->wait_ready(kAll, kPatience), kException);
    EXPECT_EQ(socket_->wait_ready(kReadable | kWritable, kPatience), 0U);
    EXPECT_EQ(socket_->write("x", 1), 0);
}

}  // namespace
}  // namespace vorrim
