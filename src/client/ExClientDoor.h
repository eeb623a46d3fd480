#pragma once
// The datagram port: answers without a login, and the greetings of other servers.

#include <cstddef>
#include <deque>
#include <list>
#include <memory>
#include <optional>
#include <variant>
#include <vector>

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
    [[nodiscard]] std::size_t unfinished() const override { return waiting_.size(); }
    void carry_on() override;
    void answer(kx_memory_file& in);

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

    struct LongSearch {
        std::unique_ptr<Search> search;
        std::variant<SearchBatch, ClientMatches> rest;
    };
    // A sender whose search takes more than one step, and what it has sent behind that search: its
    // answers come in the order of its questions.
    struct Waiting {
        kx_ip_address asker;
        std::optional<LongSearch> search;
        std::deque<std::vector<std::byte>> behind;
    };
    // Further ones are lost, as datagrams may be.
    static constexpr std::size_t kMostBehind = 64;

    [[nodiscard]] bool stays_behind(const kx_memory_file& datagram);
    // Takes a step of it, and keeps it when there is more to do.
    void serve(LongSearch search);
    // Whether it is through.
    [[nodiscard]] bool take_step(LongSearch& search);

    ClientService& service_;
    std::list<Waiting> waiting_;  // a step each, in turn
};

}  // namespace vorrim
