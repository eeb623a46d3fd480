// Searches for files and for users over TCP. Nearly all take one step, which writes into the reply;
// what takes more goes on in later turns of the connection.

#include "base/file/primitives.h"
#include "client/ClientConnection.h"

namespace vorrim {

Connection::Verdict ClientConnection::search_files(kx_memory_file& payload) {
    if (!last_search().read(payload)) return Verdict::close;
    search_more_files();
    return Verdict::keep;
}

void ClientConnection::more_results() {
    if (search_ && search_->resume_position >= 0) search_more_files();
}

void ClientConnection::search_more_files() {
    begin_search(
        service_.files.begin_batch(last_search(), service_.settings.max_search_results, id()));
}

void ClientConnection::search_users(kx_memory_file& payload) {
    if (!last_search().read(payload)) return;
    begin_search(ClientMatches(last_search(), service_.settings.max_search_results));
}

template <class Rest>
void ClientConnection::begin_search(Rest rest) {
    Reply reply(*this, answer_to(rest));
    kx_memory_file& body = reply.body();
    const std::uint32_t count_at = body.tell();
    write_32(body, 0);
    const std::uint32_t records_at = body.tell();
    if (take_step(rest, body)) {
        store_32(body.data() + count_at, static_cast<std::uint32_t>(rest.found()));
        finish(reply, rest);
        return;
    }
    long_search_ = std::make_unique<LongSearch>(LongSearch{std::move(rest)});
    write_bytes(long_search_->found, body.written().subspan(records_at));
    take_turns();
}

bool ClientConnection::search_on() {
    return std::visit(
        [this](auto& rest) {
            if (!take_step(rest, long_search_->found)) return false;
            const std::unique_ptr<LongSearch> search = std::move(long_search_);
            Reply reply(*this, answer_to(rest));
            write_32(reply.body(), static_cast<std::uint32_t>(rest.found()));
            write_bytes(reply.body(), search->found.written());
            finish(reply, rest);
            return true;
        },
        long_search_->rest);
}

bool ClientConnection::take_step(SearchBatch& batch, kx_memory_file& out) {
    return service_.files.continue_batch(batch, out);
}

bool ClientConnection::take_step(ClientMatches& matches, kx_memory_file& out) {
    return service_.clients.match_clients(
        matches, [&out](RecordView record) { write_bytes(out, record.bytes()); });
}

void ClientConnection::finish(Reply& reply, const SearchBatch&) {
    write_8(reply.body(), last_search().resume_position >= 0 ? 1 : 0);
    reply.finish();
}

void ClientConnection::finish(Reply& reply, const ClientMatches&) {
    last_search().resume_position = Search::kNothingToContinue;
    reply.finish();
}

}  // namespace vorrim
