#pragma once
// A pool that a test drives by hand: one share, a clock that stands still, socket pairs or memory
// as network.

#include <array>
#include <gtest/gtest.h>
#include <memory>
#include <span>
#include <string>
#include <sys/socket.h>
#include <vector>

#include "base/Clock.h"
#include "net/Connection.h"
#include "net/PoolShare.h"
#include "net/kx_net.h"
#include "net/kx_tcpip_socket.h"
#include "net/socketPool.h"
#include "tests/net/MemoryNet.h"

namespace vorrim {

inline Bytes frame_of(const std::string& payload) {
    return frame_of(std::as_bytes(std::span(payload)));
}

inline Bytes in_a_row(const std::vector<Bytes>& parts) {
    Bytes all;
    for (const Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

template <class Net>
class PoolOver : public ::testing::Test {
protected:
    // Both ends of a stream; neither blocks.
    static std::array<std::unique_ptr<kx_tcpip_socket>, 2> make_pair() {
        std::array<int, 2> handles{};
        EXPECT_EQ(
            ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, handles.data()),
            0);
        return {std::make_unique<kx_tcpip_socket>(handles[0], SocketType::stream),
                std::make_unique<kx_tcpip_socket>(handles[1], SocketType::stream)};
    }

    // Turns until nothing is ready any more.
    void settle() {
        for (int i = 0; i < 64; ++i)
            share_.run_once(std::chrono::nanoseconds(0));
    }

    static void write_all(kx_net_socket& to, const Bytes& bytes) {
        ASSERT_EQ(to.write(bytes.data(), static_cast<std::uint32_t>(bytes.size())),
                  static_cast<std::int32_t>(bytes.size()));
    }

    // What has arrived at this end; ends with `closed` set when the other end is gone.
    static Bytes read_all(kx_net_socket& from, bool* closed = nullptr) {
        Bytes bytes;
        std::array<std::byte, 65536> room{};
        for (;;) {
            const std::int32_t count = from.read(room.data(), room.size());
            if (count <= 0) {
                if (closed != nullptr) *closed = count < 0;
                return bytes;
            }
            bytes.insert(bytes.end(), room.begin(), room.begin() + count);
        }
    }
    // Whether the other end is gone; reads what has arrived before.
    static bool is_closed(kx_net_socket& peer) {
        bool closed = false;
        read_all(peer, &closed);
        return closed;
    }

    ManualClock clock_;
    Net net_;
    Limits limits_;  // none
    socketPool pool_{net_, clock_, limits_};
    PoolShare& share_ = pool_.add_share();
};
using PoolFixture = PoolOver<kx_tcpip_protocol>;

}  // namespace vorrim
