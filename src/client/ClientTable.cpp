#include "client/ClientTable.h"

#include <array>
#include <utility>

#include "base/Output.h"
#include "base/Rollback.h"
#include "base/file/primitives.h"
#include "client/ClientConnection.h"
#include "client/index/StepBudget.h"
#include "client/messages.h"
#include "meta/Opcodes.h"
#include "search/UnknownOperations.h"

namespace vorrim {

namespace {

// A record as every client has it before its first login: no hash, no identifier, no port, no tags.
constexpr std::array<std::byte, RecordLayout::tags> kEmptyRecord{};

}  // namespace

ClientTable::ClientTable(Random& random, std::uint32_t first_low_id)
    : by_id_(ById{KeyedHash(random.next_u64(), random.next_u64())}),
      by_hash_(ByHash{KeyedHash(random.next_u64(), random.next_u64())}),
      next_id_(first_low_id) {}

RecordView ClientTable::view_of(const FrozenRecord& record) noexcept {
    return record.empty() ? RecordView(kEmptyRecord) : record.view();
}

void ClientTable::add(ClientConnection& client) {
    TableEntry& entry = client;
    {
        const kx_write_guard hold(lock_);
        entry.arrival_ = ++arrivals_;
        roll_.append(client);
        // Undone, if at all, before the lock is left, which the analysis does not see.
        Rollback entered([this, &client]() NO_THREAD_SAFETY_ANALYSIS { forget(client); });
        by_id_.insert(client);
        by_hash_.insert(client);
        entered.keep();
    }
    count_.fetch_add(1);
}

void ClientTable::remove(ClientConnection& client) {
    const TableEntry& entry = client;
    {
        const kx_write_guard hold(lock_);
        forget(client);
    }
    release_id(entry.id_);
    count_.fetch_sub(1);
}

void ClientTable::forget(const ClientConnection& client) {
    by_id_.erase(client);
    by_hash_.erase(client);
    roll_.remove(client);
}

void ClientTable::set_id(ClientConnection& client, ClientId id) {
    TableEntry& entry = client;
    by_id_.erase(client);
    entry.id_ = id;
    by_id_.insert(client);
}

ClientTable::Claim ClientTable::claim(ClientConnection& client, ClientId address) {
    const kx_write_guard hold(lock_);
    if (const ClientConnection* const holder = by_id_.find(address))
        return holder->leaving() ? Claim::held_for_now : Claim::held;
    set_id(client, address);
    return Claim::given;
}

bool ClientTable::assign_low_id(ClientConnection& client) {
    bool looped = false;
    bool given = false;
    {
        const kx_write_guard hold(lock_);
        // An address that ends in .0 is a number of the low range: never hand out what somebody
        // has.
        std::optional<ClientId> id = next_low_id();
        while (id && by_id_.find(*id) != nullptr)
            id = next_low_id();
        looped = !id;
        if (looped) id = abandoned_low_id();
        given = id.has_value();
        if (given) set_id(client, *id);
    }
    if (looped) current_output().printError("ERROR: looped IDs.\n");
    return given;
}

void ClientTable::set_record(ClientConnection& client, FrozenRecord record) {
    TableEntry& entry = client;
    const kx_write_guard hold(lock_);
    by_hash_.erase(client);
    entry.record_ = std::move(record);
    roll_.set_look(client, TextLook(entry.record_));
    by_hash_.insert(client);
}

void ClientTable::stamp_record(ClientConnection& client) {
    TableEntry& entry = client;
    const kx_write_guard hold(lock_);
    entry.record_.set_owner(entry.id_, entry.record_.view().port());
}

ClientId ClientTable::id_of(const ClientConnection& client) const {
    const kx_read_guard hold(lock_);
    return static_cast<const TableEntry&>(client).id_;
}

RecordView ClientTable::record_of(const ClientConnection& client) const {
    return view_of(static_cast<const TableEntry&>(client).record_);
}

std::optional<ClientId> ClientTable::next_low_id() {
    const kx_guard hold(id_lock_);
    if (released_id_ != 0) return ClientId(std::exchange(released_id_, 0));
    if (looped_) return std::nullopt;
    const std::uint32_t id = next_id_++;
    if (next_id_ > kHighestLowId) {
        next_id_ = 1;
        looped_ = true;
    }
    return ClientId(id);
}

// What was released last is all that is remembered, while nearly all that were handed out are free
// again.
std::optional<ClientId> ClientTable::abandoned_low_id() {
    const kx_guard hold(id_lock_);
    for (std::uint32_t tried = 0; tried < kHighestLowId; ++tried) {
        const ClientId id(next_id_);
        next_id_ = id.recyclable() ? next_id_ + 1 : 1;
        if (id.recyclable() && by_id_.find(id) == nullptr) return id;
    }
    return std::nullopt;
}

void ClientTable::release_id(ClientId id) {
    if (!id.recyclable()) return;
    const kx_guard hold(id_lock_);
    released_id_ = id.value();
}

bool ClientTable::with_id(ClientId id, const std::function<void(ClientConnection&)>& use) const {
    const kx_read_guard hold(lock_);
    ClientConnection* const found = by_id_.find(id);
    if (found == nullptr) return false;
    use(*found);
    return true;
}

bool ClientTable::with_hash(const FileHash& hash,
                            const std::function<void(RecordView)>& use) const {
    const kx_read_guard hold(lock_);
    const ClientConnection* const found = by_hash_.find(hash);
    if (found == nullptr) return false;
    use(record_of(*found));
    return true;
}

void ClientTable::for_each(const std::function<void(ClientConnection&)>& use) const {
    constexpr int kStep = 1024;
    std::optional<std::uint64_t> last;
    std::uint64_t next = 0;
    for (bool more = true; more;) {
        const kx_read_guard hold(lock_);
        if (!last) last = arrivals_;
        more = false;
        int left = kStep;
        roll_.walk(next, [&](ClientConnection& client, TextLook) {
            next = client.arrival();
            if (next > *last) return false;
            more = left-- == 0;
            if (!more) use(client);
            return !more;
        });
    }
}

bool ClientTable::match_clients(ClientMatches& matches,
                                const std::function<void(RecordView)>& use) const {
    constexpr std::uint32_t kStep = 100'000;  // about a millisecond
    constexpr std::uint32_t kPassedCost = 1;
    StepBudget budget(kStep);
    Evaluator& evaluator = matches.evaluator_;
    const HeldReports reports(matches.reports_);
    const kx_read_guard hold(lock_);
    bool done = true;
    roll_.walk(matches.next_, [&](const ClientConnection& client, TextLook look) {
        if (matches.found_ >= matches.limit_) return false;
        if (budget.spent()) {
            matches.next_ = client.arrival();
            done = false;
            return false;
        }
        if (!look.has_all_of(matches.asked_)) {
            budget.charge(kPassedCost);
            return true;
        }
        const RecordView record = look.has_record() ? record_of(client) : RecordView(kEmptyRecord);
        budget.charge(kRecordCost + evaluator.nodes() + evaluator.surcharge(record));
        if (!evaluator.matches(record)) return true;
        use(record);
        ++matches.found_;
        return true;
    });
    return done;
}

void ClientTable::send_to_all(Packet packet) const {
    const auto shared = std::make_shared<const Packet>(std::move(packet));
    for_each([&](ClientConnection& client) { client.send(shared); });
}

void ClientTable::send_text_to_all(std::string_view text) const {
    send_to_all(make_text_packet(Opcode::OP_SERVER_MESSAGE, text));
}

}  // namespace vorrim
