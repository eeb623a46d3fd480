#pragma once
// A listening TCP port: turns each accepted socket into a connection of the pool.
//
// A refused connection is closed without a word. An address that is not exempt may have so many
// connections at a time and make so many a minute, all doors together. When descriptors run out,
// the door pauses and tries again a little later; the connections that stand never notice.

#include <cstdint>
#include <memory>

#include "net/Connection.h"
#include "net/Task.h"

namespace vorrim {

class Door : public Task {
public:
    // Opens the port and gives the door to the pool. A port that cannot be listened on prints the
    // reason, and the door is gone; the server runs on without it. Proxy wait in milliseconds.
    static void open(std::unique_ptr<Door> door, socketPool& pool, int proxy_wait_ms);

    [[nodiscard]] Turn doTask(socketPool& pool) override;
    [[nodiscard]] Turn onDeadline() override;

protected:
    // `bind` is the local address to listen on, in identifier form; 0 means all of them.
    Door(socketPool& pool, std::uint16_t port, std::uint32_t bind = 0);

    // Whether one more connection is welcome now, whoever makes it.
    [[nodiscard]] virtual bool may_accept() { return true; }
    // Whether one more is welcome that is not exempt from limits.
    [[nodiscard]] virtual bool may_accept_stranger() { return true; }
    [[nodiscard]] virtual std::unique_ptr<Connection> create_connection(
        std::unique_ptr<kx_net_socket> socket, socketPool& pool) = 0;

private:
    void admit(std::unique_ptr<kx_net_socket> socket, socketPool& pool);
    [[nodiscard]] bool pass_gate(std::uint32_t peer);

    kx_ip_address local_;
    bool paused_ = false;  // descriptors ran out; the deadline ends it
};

}  // namespace vorrim
