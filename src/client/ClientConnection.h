#pragma once
// One connected client: what it asks and what it is told.
//
//     packet ──► handle_message ──► login | publish | search | people | rooms ──► send(reply)
//
// The handlers are grouped by topic: ClientLogin.cpp, ClientFiles.cpp, ClientSearches.cpp,
// ClientPeople.cpp and ClientRooms.cpp.
//
// Threads: handlers run on the connection's worker. Other threads reach the connection through the
// client table or a room, whose lock they hold while they use it.

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <variant>
#include <vector>

#include "client/ClientMatches.h"
#include "client/ClientService.h"
#include "client/ClientTable.h"
#include "client/SearchBatch.h"
#include "net/Connection.h"
#include "search/Search.h"

namespace vorrim {

class ReachabilityTest;
class Room;

class ClientConnection final : public Connection, public TableEntry {
public:
    // Enters the client table.
    ClientConnection(std::unique_ptr<kx_net_socket> socket, socketPool& pool,
                     ClientService& service);
    // Leaves its room, withdraws its files, leaves the table; in this order.
    ~ClientConnection() override;

    // The identifier; 0 until the first login. Own worker, or under a lock that holds the client.
    [[nodiscard]] ClientId id() const noexcept { return ClientId(identifier()); }
    // The connection has ended, and its files are being withdrawn. Any thread.
    [[nodiscard]] bool leaving() const noexcept { return leaving_.load(); }
    // Queues a call-back request: somebody at this address wants to be connected to.
    void send_callback(ClientId address, std::uint16_t port);

private:
    [[nodiscard]] Verdict handle_message(std::uint8_t opcode, kx_memory_file& payload) override;
    // Questions for sources that came together.
    [[nodiscard]] std::size_t handle_run(std::span<const std::byte>& bytes,
                                         std::size_t most) override;
    // A long search, or a long list of files.
    [[nodiscard]] bool carry_on() override;
    // Leaves the room, then withdraws a slice of its files a turn.
    [[nodiscard]] bool farewell() override;

    // Login (ClientLogin.cpp)
    [[nodiscard]] Verdict login(kx_memory_file& payload);
    [[nodiscard]] bool admits(RecordView earlier, RecordView latest) const;
    void claim_address();
    // For the holder of its address, who is leaving, to be gone.
    [[nodiscard]] Turn onAlarm() override;
    void finish_login();
    void reachability_known(bool reachable);
    void take_low_id();
    void gate_version();

    // Files (ClientFiles.cpp)
    [[nodiscard]] Verdict offer_files(kx_memory_file& payload);
    void refuse_excess(std::vector<FrozenRecord>& records);
    void publish(std::span<FrozenRecord> records);
    [[nodiscard]] bool publish_more();
    void get_sources(kx_memory_file& payload);

    // Searches (ClientSearches.cpp)
    [[nodiscard]] Verdict search_files(kx_memory_file& payload);
    void more_results();
    void search_more_files();
    void search_users(kx_memory_file& payload);
    template <class Rest>
    void begin_search(Rest rest);
    [[nodiscard]] bool search_on();
    [[nodiscard]] bool take_step(SearchBatch& batch, kx_memory_file& out);
    [[nodiscard]] bool take_step(ClientMatches& matches, kx_memory_file& out);
    [[nodiscard]] static Opcode answer_to(const SearchBatch&) { return Opcode::OP_SEARCH_RESULTS; }
    [[nodiscard]] static Opcode answer_to(const ClientMatches&) { return Opcode::OP_USER_RESULTS; }
    void finish(Reply& reply, const SearchBatch& batch);
    void finish(Reply& reply, const ClientMatches& matches);

    // People (ClientPeople.cpp)
    void send_servers();
    void find_user(kx_memory_file& payload);
    void request_callback(kx_memory_file& payload);

    // Rooms (ClientRooms.cpp)
    void send_rooms();
    void room_message(kx_memory_file& payload);
    void join_room(kx_memory_file& payload);

    [[nodiscard]] Search& last_search();
    void sync_identifier();

    // A long list of files that enters the index in steps.
    struct Offer {
        std::vector<FrozenRecord> records;
        std::size_t published = 0;
    };

    // A search that takes more than one step, and the records that it has found so far.
    struct LongSearch {
        std::variant<SearchBatch, ClientMatches> rest;
        kx_memory_file found{4096};
    };

    ClientService& service_;
    std::uint32_t files_ = 0;         // published, under any identifier
    std::int32_t port_ = 0;           // as announced at login, sign-extended
    std::unique_ptr<Search> search_;  // none until the first search
    std::unique_ptr<LongSearch> long_search_;
    std::unique_ptr<Offer> offer_;
    ReachabilityTest* test_ = nullptr;  // while the login waits for it
    Room* room_ = nullptr;
    std::vector<ClientId> former_ids_;  // of earlier logins under which files stand
    FileIndex::Departure departure_;    // once the connection is leaving
    std::atomic<bool> leaving_ = false;
    bool rejected_ = false;  // the version gate refused it: the next packet ends it
};

}  // namespace vorrim
