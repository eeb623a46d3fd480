#pragma once
// The port that clients connect to. It takes one more only while there are fewer than allowed.

#include "client/ClientConnection.h"
#include "client/ClientService.h"
#include "net/Door.h"

namespace vorrim {

class ClientDoor final : public Door {
public:
    ClientDoor(socketPool& pool, std::uint16_t port, ClientService& service)
        : Door(pool, port), service_(service) {}

private:
    [[nodiscard]] bool may_accept() override {
        return service_.clients.count() < service_.settings.max_clients;
    }
    [[nodiscard]] std::unique_ptr<Connection> create_connection(
        std::unique_ptr<kx_net_socket> socket, socketPool& pool) override {
        return std::make_unique<ClientConnection>(std::move(socket), pool, service_);
    }

    ClientService& service_;
};

}  // namespace vorrim
