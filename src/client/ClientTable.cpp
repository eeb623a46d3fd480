#include "client/ClientTable.h"

#include <array>
#include <bit>
#include <cstring>
#include <utility>

#include "base/Output.h"
#include "base/file/primitives.h"
#include "client/ClientConnection.h"
#include "client/index/StepBudget.h"
#include "client/messages.h"
#include "meta/Opcodes.h"
#include "search/UnknownOperations.h"
#include "search/prefix_walk.h"

namespace vorrim {

namespace {

// A record as every client has it before its first login: no hash, no identifier, no port, no tags.
constexpr std::array<std::byte, RecordLayout::tags> kEmptyRecord{};

std::uint64_t mix(std::uint64_t value) noexcept {
    value ^= value >> 32U;
    value *= 0xE9846AF9B1A615DULL;  // multiplier of the MurmurHash3-style mixer by J. Maiga
    value ^= value >> 32U;
    value *= 0xE9846AF9B1A615DULL;
    return value ^ (value >> 28U);
}

}  // namespace

std::size_t ClientTable::IdHash::operator()(ClientId id) const noexcept {
    return mix(id.value());
}

std::size_t ClientTable::KeyedHash::operator()(const FileHash& hash) const noexcept {
    std::array<std::uint64_t, 2> words{};
    static_assert(sizeof words == sizeof hash.bytes);
    std::memcpy(words.data(), hash.bytes.data(), sizeof words);
    return mix(mix(words[0] ^ key0) + (words[1] ^ key1));
}

ClientTable::ClientTable(Random& random, std::uint32_t first_low_id)
    : by_id_(IdHash{}),
      by_hash_(KeyedHash{random.next_u64(), random.next_u64()}),
      next_id_(first_low_id) {}

RecordView ClientTable::view_of(const FrozenRecord& record) noexcept {
    return record.empty() ? RecordView(kEmptyRecord) : record.view();
}

void ClientTable::add(ClientConnection& client) {
    TableEntry& entry = client;
    {
        const kx_write_guard hold(lock_);
        entry.arrival_ = ++arrivals_;
        entry.before_ = last_;
        if (last_ != nullptr) {
            static_cast<TableEntry&>(*last_).after_ = &client;
        } else {
            first_ = &client;
        }
        last_ = &client;
        by_id_.insert(entry.id_, client);
        by_hash_.insert(view_of(entry.record_).hash(), client);
    }
    count_.fetch_add(1);
}

void ClientTable::remove(ClientConnection& client) {
    TableEntry& entry = client;
    {
        const kx_write_guard hold(lock_);
        by_id_.erase(entry.id_, client);
        by_hash_.erase(view_of(entry.record_).hash(), client);
        ClientConnection*& from_before =
            entry.before_ != nullptr ? static_cast<TableEntry&>(*entry.before_).after_ : first_;
        ClientConnection*& from_after =
            entry.after_ != nullptr ? static_cast<TableEntry&>(*entry.after_).before_ : last_;
        from_before = entry.after_;
        from_after = entry.before_;
        bookmarks_.pass(client, entry.after_);
    }
    release_id(entry.id_);
    count_.fetch_sub(1);
}

void ClientTable::set_id(ClientConnection& client, ClientId id) {
    TableEntry& entry = client;
    by_id_.erase(entry.id_, client);
    entry.id_ = id;
    by_id_.insert(id, client);
}

ClientTable::Claim ClientTable::claim(ClientConnection& client, ClientId address) {
    const kx_write_guard hold(lock_);
    if (const ClientConnection* const holder = by_id_.find(address))
        return holder->leaving() ? Claim::held_for_now : Claim::held;
    set_id(client, address);
    return Claim::given;
}

bool ClientTable::assign_low_id(ClientConnection& client) {
    {
        const kx_write_guard hold(lock_);
        // An address that ends in .0 is a number of the low range: never hand out what somebody
        // has.
        std::optional<ClientId> id = next_low_id();
        while (id && by_id_.find(*id) != nullptr)
            id = next_low_id();
        if (id) {
            set_id(client, *id);
            return true;
        }
    }
    current_output().printError("ERROR: looped IDs.\n");
    return false;
}

void ClientTable::set_record(ClientConnection& client, FrozenRecord record) {
    TableEntry& entry = client;
    const kx_write_guard hold(lock_);
    by_hash_.erase(view_of(entry.record_).hash(), client);
    entry.record_ = std::move(record);
    by_hash_.insert(view_of(entry.record_).hash(), client);
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
    std::optional<Bookmarks::Mark> place;
    std::uint64_t last = 0;
    for (bool more = true; more;) {
        const kx_read_guard hold(lock_);
        if (!place) last = arrivals_;
        ClientConnection* client = place ? place->next() : first_;
        const auto to_visit = [&] { return client != nullptr && client->arrival() <= last; };
        for (int left = kStep; left > 0 && to_visit(); --left) {
            use(*client);
            client = static_cast<TableEntry&>(*client).after_;
        }
        more = to_visit();
        if (!more) continue;
        if (place)
            place->move(client);
        else
            place.emplace(bookmarks_, client);
    }
}

bool ClientTable::match_clients(ClientMatches& matches,
                                const std::function<void(RecordView)>& use) const {
    constexpr std::uint32_t kStep = 100'000;  // about a millisecond
    StepBudget budget(kStep);
    if (matches.cost_ == 0) {
        matches.cost_ = kRecordCost;
        if (matches.search_->root() != nullptr)
            prefix_walk(*matches.search_->root(), [&matches](const SearchNode&) {
                ++matches.cost_;
                return Sides::both;
            });
    }
    const HeldReports reports(matches.reports_);
    const kx_read_guard hold(lock_);
    ClientConnection* client = matches.place_ ? matches.place_->next() : first_;
    for (; client != nullptr && matches.found_ < matches.limit_;
         client = static_cast<const TableEntry&>(*client).after_) {
        if (budget.spent()) {
            if (matches.place_) {
                matches.place_->move(client);
            } else {
                matches.place_ = std::make_unique<Bookmarks::Mark>(bookmarks_, client);
            }
            return false;
        }
        budget.charge(matches.cost_);
        const RecordView record = record_of(*client);
        if (!matches.search_->matches(record)) continue;
        use(record);
        ++matches.found_;
    }
    return true;
}

void ClientTable::send_to_all(Packet packet) const {
    const auto shared = std::make_shared<const Packet>(std::move(packet));
    for_each([&](ClientConnection& client) { client.send(shared); });
}

void ClientTable::send_text_to_all(std::string_view text) const {
    send_to_all(make_text_packet(Opcode::OP_SERVER_MESSAGE, text));
}

}  // namespace vorrim
