#include "client/ExClientDoor.h"

#include <algorithm>
#include <span>
#include <utility>

#include "base/Output.h"
#include "base/file/primitives.h"
#include "client/ClientConnection.h"
#include "meta/FileHash.h"
#include "meta/Opcodes.h"
#include "search/Search.h"

namespace vorrim {

namespace {

// What a datagram counts for, in bytes, towards the place that it makes the server work for, beside
// the answers themselves.
constexpr std::uint32_t kSearchCost = 1024;    // a search that finds nothing is work as well
constexpr int kSearchWork = 32;                // in other datagrams, towards the end of the turn
constexpr std::uint32_t kCallbackCost = 1024;  // a client connects to that place
constexpr std::uint32_t kListCost = 1389;      // of servers, as long as one may be

}  // namespace

void ExClientDoor::handle_datagram(kx_memory_file& in) {
    if (read_8(in) != kDatagramMarker || stays_behind(in)) return;
    answer(in);
}

void ExClientDoor::answer(kx_memory_file& in) {
    const std::uint8_t opcode = read_8(in);
    switch (static_cast<Opcode>(opcode)) {
        case Opcode::OP_UDP_STATUS_REQUEST:
            return status(in);
        case Opcode::OP_UDP_SEARCH_FILES:
            return search_files(in);
        case Opcode::OP_UDP_GET_SOURCES:
            return get_sources(in);
        case Opcode::OP_UDP_CALLBACK_REQUEST:
            return request_callback(in);
        case Opcode::OP_UDP_SEARCH_USERS:
            return search_users(in);
        case Opcode::OP_UDP_SERVER_HELLO:
            return server_hello(in);
        case Opcode::OP_UDP_SERVER_LIST:
            return server_list(in);
        default:
            current_output().printVerbose("ExClientDoor Unknown Msg: %d\n", opcode);
    }
}

Told ExClientDoor::witness(std::uint32_t address) const {
    if (exempt(sender())) return Told::at_home;
    return sender() == address ? Told::by_itself : Told::by_others;
}

void ExClientDoor::begin_answer(Opcode opcode) {
    out().clear();
    write_8(out(), kDatagramMarker);
    write_8(out(), static_cast<std::uint8_t>(opcode));
}

void ExClientDoor::answer_with(RecordView record) {
    begin_answer(Opcode::OP_UDP_SEARCH_RESULT);
    write_bytes(out(), record.bytes());
    reply();
}

void ExClientDoor::status(kx_memory_file& in) {
    const std::uint32_t challenge = read_32(in);
    begin_answer(Opcode::OP_UDP_STATUS);
    write_32(out(), challenge);
    write_32(out(), static_cast<std::uint32_t>(service_.clients.count()));
    write_32(out(), static_cast<std::uint32_t>(service_.files.source_total()));
    reply_status();
}

void ExClientDoor::search_files(kx_memory_file& in) {
    if (!may_send(sender(), kSearchCost)) return;
    count_work(kSearchWork);
    auto search = std::make_unique<Search>();
    if (!search->read(in)) return;
    // The asker has no identifier, so it sees what a low one sees.
    SearchBatch batch =
        service_.files.begin_batch(*search, service_.settings.max_search_results, ClientId());
    serve({std::move(search), std::move(batch)});
}

void ExClientDoor::search_users(kx_memory_file& in) {
    if (!may_send(sender(), kSearchCost)) return;
    count_work(kSearchWork);
    auto search = std::make_unique<Search>();
    if (!search->read(in)) return;
    ClientMatches matches(*search, service_.settings.max_search_results);
    serve({std::move(search), std::move(matches)});
}

bool ExClientDoor::stays_behind(const kx_memory_file& datagram) {
    const auto before = std::ranges::find(waiting_, peer(), &Waiting::asker);
    if (before == waiting_.end()) return false;
    if (before->behind.size() == kMostBehind) return true;
    const std::span<const std::byte> rest = datagram.rest();
    before->behind.emplace_back(rest.begin(), rest.end());
    return true;
}

void ExClientDoor::serve(LongSearch search) {
    if (take_step(search)) return;
    const auto free = std::ranges::find_if(waiting_, [this](const Waiting& waiting) {
        return waiting.asker == peer() && !waiting.search;
    });
    Waiting& waiting =
        free != waiting_.end() ? *free : waiting_.emplace_back(Waiting{peer(), {}, {}});
    waiting.search.emplace(std::move(search));
}

void ExClientDoor::carry_on() {
    const auto waiting = waiting_.begin();
    waiting_.splice(waiting_.end(), waiting_, waiting);
    set_peer(waiting->asker);
    if (waiting->search) {
        LongSearch search = std::move(*waiting->search);
        waiting->search.reset();
        attempt([&] { serve(std::move(search)); });
    }
    while (!waiting->search && !waiting->behind.empty() && work_left()) {
        const std::vector<std::byte> datagram = std::move(waiting->behind.front());
        waiting->behind.pop_front();
        kx_memory_file in = kx_memory_file::reading(datagram);
        count_work(1);
        attempt([&] { answer(in); });
    }
    if (!waiting->search && waiting->behind.empty()) waiting_.erase(waiting);
}

bool ExClientDoor::take_step(LongSearch& search) {
    const auto answer = [this](RecordView record) { answer_with(record); };
    if (auto* const matches = std::get_if<ClientMatches>(&search.rest))
        return service_.clients.match_clients(*matches, answer);
    return service_.files.continue_batch(std::get<SearchBatch>(search.rest), answer);
}

void ExClientDoor::get_sources(kx_memory_file& in) {
    if (!may_answer()) return;
    const FileHash hash = FileHash::read(in);
    begin_answer(Opcode::OP_UDP_FOUND_SOURCES);
    if (service_.files.write_sources(hash, out())) reply();
}

void ExClientDoor::request_callback(kx_memory_file& in) {
    const ClientId address(read_32(in));
    const std::uint16_t port = read_16(in);
    const ClientId wanted(read_32(in));
    if (!wanted.below_low_limit() || !address.exceeds_low_range()) return;
    if (!may_send(address.value(), kCallbackCost)) return;
    const bool asked = service_.clients.with_id(
        wanted, [&](ClientConnection& target) { target.send_callback(address, port); });
    if (asked) return;
    begin_answer(Opcode::OP_UDP_CALLBACK_FAILED);
    write_32(out(), wanted.value());
    reply();
}

void ExClientDoor::server_hello(kx_memory_file& in) {
    if (!service_.servers.is_public()) return;
    const std::uint32_t address = read_32(in);
    const std::uint16_t port = read_16(in);
    if (!may_send(address, kListCost)) return;
    service_.servers.onHello(address, port, witness(address));
}

void ExClientDoor::server_list(kx_memory_file& in) {
    if (!service_.servers.is_public()) return;
    const std::uint32_t address = read_32(in);
    const std::uint16_t port = read_16(in);
    const unsigned count = read_8(in);
    if (!may_send(sender(), kListCost)) return;
    // A list that is shorter than it says teaches nothing.
    kx_memory_file entries = kx_memory_file::reading(in.take(count * kListEntryBytes));
    service_.servers.onListHeader(address, port, witness(address));
    const Told told = exempt(sender()) ? Told::at_home : Told::by_others;
    for (unsigned i = 0; i < count; ++i) {
        const std::uint32_t listed = read_32(entries);
        service_.servers.learn(listed, read_16(entries), told);
    }
}

}  // namespace vorrim
