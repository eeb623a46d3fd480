#pragma once
// The port that remote administrators connect to.

#include "net/Controller.h"
#include "net/Door.h"
#include "net/socketPool.h"

namespace vorrim {

class ControllerDoor final : public Door {
public:
    // Listens on `port` of the local address `bind` (identifier form); 0 means all of them. Console
    // and throttle must outlive the pool's tasks.
    ControllerDoor(socketPool& pool, std::uint16_t port, std::uint32_t bind, RemoteConsole& console,
                   LoginThrottle& throttle)
        : Door(pool, port, bind), console_(console), throttle_(throttle) {}

    // Connections of strangers at a time: a crowd at this door takes no descriptors from clients.
    static constexpr std::int32_t kMostStrangers = 32;

private:
    [[nodiscard]] bool may_accept_stranger() override {
        Limits& limits = pool().limits();
        if (limits.strange_administrators.load() < kMostStrangers) return true;
        limits.log.count(Limit::administrators);
        return false;
    }
    [[nodiscard]] std::unique_ptr<Connection> create_connection(
        std::unique_ptr<kx_net_socket> socket, socketPool& pool) override {
        return std::make_unique<Controller>(std::move(socket), pool, console_, throttle_);
    }

    RemoteConsole& console_;
    LoginThrottle& throttle_;
};

}  // namespace vorrim
