#pragma once
// The datagram port: answers without a login, and the greetings of other servers.

#include <cstddef>
#include <deque>
#include <memory>
#include <variant>

#include "client/ClientMatches.h"
#include "client/ClientService.h"
#include "client/SearchBatch.h"
#include "meta/Opcodes.h"
#include "net/UDPDoor.h"
#include "net/kx_ip_address.h"
#include "search/Search.h"

namespace vorrim {

class ExClientDoor final : public UDPDoor {
public:
    ExClientDoor(socketPool& pool, std::uint16_t port, ClientService& service)
        : UDPDoor(pool, port), service_(service) {}

private:
    void handle_datagram(kx_memory_file& in) override;
    [[nodiscard]] std::size_t unfinished() const override { return long_searches_.size(); }
    void carry_on() override;

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

    // A search that takes more than one step.
    struct LongSearch {
        std::unique_ptr<Search> search;
        std::variant<SearchBatch, ClientMatches> rest;
        kx_ip_address asker;
    };
    // Takes a step of it, and keeps it when there is more to do.
    void serve(LongSearch search);
    // Whether it is through.
    [[nodiscard]] bool take_step(LongSearch& search);

    ClientService& service_;
    std::deque<LongSearch> long_searches_;  // a step each, in turn
};

}  // namespace vorrim
