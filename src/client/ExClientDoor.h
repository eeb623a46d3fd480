#pragma once
// The datagram port: answers without a login, and the greetings of other servers.

#include "client/ClientService.h"
#include "meta/Opcodes.h"
#include "net/UDPDoor.h"

namespace vorrim {

class ExClientDoor final : public UDPDoor {
public:
    ExClientDoor(socketPool& pool, std::uint16_t port, ClientService& service)
        : UDPDoor(pool, port), service_(service) {}

private:
    void handle_datagram(kx_memory_file& in) override;

    void status(kx_memory_file& in);
    void search_files(kx_memory_file& in);
    void get_sources(kx_memory_file& in);
    void request_callback(kx_memory_file& in);
    void search_users(kx_memory_file& in);
    void server_hello(kx_memory_file& in);
    void server_list(kx_memory_file& in);

    // Who tells of the server with this address.
    [[nodiscard]] Told witness(std::uint32_t address) const;
    void begin_answer(Opcode opcode);
    void answer_with(RecordView record);

    ClientService& service_;
};

}  // namespace vorrim
