#include "client/ClientRoll.h"

#include "client/ClientConnection.h"
#include "client/index/TextSignature.h"
#include "search/required_sides.h"

namespace vorrim {

TextLook::TextLook(const FrozenRecord& record) noexcept {
    constexpr std::uint64_t kHasRecord = 1;
    if (!record.empty()) bits_ = signature_of(record.view()).folded() | kHasRecord;
}

TextLook::TextLook(const SearchNode* search) {
    if (search == nullptr || may_report(*search)) return;
    TextSignature needed;
    walk_required(
        *search, [&needed](std::string_view text) { needed.add(text); }, [](const SN_Operator&) {});
    bits_ = needed.folded();
}

std::size_t ClientRoll::Stretch::place_of(std::uint64_t arrival) const noexcept {
    const auto end = clients.begin() + static_cast<std::ptrdiff_t>(count);
    const auto at = std::lower_bound(clients.begin(), end, arrival,
                                     [](const ClientConnection* client, std::uint64_t sought) {
                                         return client->arrival() < sought;
                                     });
    return static_cast<std::size_t>(at - clients.begin());
}

void ClientRoll::Stretch::drop(std::size_t at) noexcept {
    std::copy(clients.begin() + at + 1, clients.begin() + count, clients.begin() + at);
    std::copy(looks.begin() + at + 1, looks.begin() + count, looks.begin() + at);
    --count;
}

std::size_t ClientRoll::stretch_of(std::uint64_t arrival) const noexcept {
    const auto behind = std::ranges::upper_bound(
        stretches_, arrival, {}, [](const auto& stretch) { return stretch->first; });
    return behind == stretches_.begin() ? 0
                                        : static_cast<std::size_t>(behind - stretches_.begin()) - 1;
}

void ClientRoll::append(ClientConnection& client) {
    if (stretches_.empty() || stretches_.back()->count == kRows)
        stretches_.push_back(std::make_unique<Stretch>(client.arrival()));
    Stretch& last = *stretches_.back();
    last.clients[last.count] = &client;
    last.looks[last.count] = {};
    ++last.count;
}

void ClientRoll::remove(const ClientConnection& client) noexcept {
    const std::size_t number = stretch_of(client.arrival());
    Stretch& stretch = *stretches_[number];
    const auto found = std::ranges::find(stretch.clients, &client);
    stretch.drop(static_cast<std::size_t>(found - stretch.clients.begin()));
    if (!join(number) && number > 0) static_cast<void>(join(number - 1));
    if (stretches_.size() == 1 && stretches_.front()->count == 0) Stretches().swap(stretches_);
}

// A stretch is joined once, so that a departure moves few; of every two neighbours more than half
// is in use.
bool ClientRoll::join(std::size_t left) noexcept {
    if (left + 1 >= stretches_.size()) return false;
    Stretch& into = *stretches_[left];
    const Stretch& from = *stretches_[left + 1];
    if (into.count + from.count > kRows) return false;
    std::copy_n(from.clients.begin(), from.count, into.clients.begin() + into.count);
    std::copy_n(from.looks.begin(), from.count, into.looks.begin() + into.count);
    into.count += from.count;
    stretches_.erase(stretches_.begin() + static_cast<std::ptrdiff_t>(left) + 1);
    return true;
}

void ClientRoll::set_look(const ClientConnection& client, TextLook look) noexcept {
    Stretch& stretch = *stretches_[stretch_of(client.arrival())];
    const auto found = std::ranges::find(stretch.clients, &client);
    stretch.looks[static_cast<std::size_t>(found - stretch.clients.begin())] = look;
}

}  // namespace vorrim
