#pragma once
// The port that remote administrators connect to.

#include "net/Controller.h"
#include "net/Door.h"

namespace vorrim {

class ControllerDoor final : public Door {
public:
    // Listens on `port` of the local address `bind` (identifier form); 0 means all of them. Console
    // and throttle must outlive the pool's tasks.
    ControllerDoor(socketPool& pool, std::uint16_t port, std::uint32_t bind, RemoteConsole& console,
                   LoginThrottle& throttle)
        : Door(pool, port, bind), console_(console), throttle_(throttle) {}

private:
    [[nodiscard]] std::unique_ptr<Connection> create_connection(
        std::unique_ptr<kx_net_socket> socket, socketPool& pool) override {
        return std::make_unique<Controller>(std::move(socket), pool, console_, throttle_);
    }

    RemoteConsole& console_;
    LoginThrottle& throttle_;
};

}  // namespace vorrim
