#pragma once
// The connections in order of arrival, and of each what its record's texts look like from afar:
//
//     stretch ──► clients [ c1 | c2 | c5 | ... ]      up to 252, without gaps
//                 looks   [ .. | 0  | .. | ... ]      64 bits each; 0: no record yet
//
// A search among people asks the looks, which lie side by side, and goes to the few records that
// may match: what a crowd of others costs it is a nanosecond each. A list of connections linked to
// one another cost it a cache miss each, and nearly two for those who have logged in.
//
// Ownership   Refers to the connections.
// Threads     None inside: the owner's lock guards it.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "meta/FrozenRecord.h"
#include "search/SearchNode.h"

namespace vorrim {

class ClientConnection;

// The bits that a record's texts leave behind when only 64 are kept. All texts of a record that
// matches have those that the search asks for; the other way round nothing follows.
class TextLook {
public:
    // Of somebody without a record.
    constexpr TextLook() noexcept = default;
    // An empty record is none.
    explicit TextLook(const FrozenRecord& record) noexcept;
    // What every match of the search has. Nothing, where an evaluation may print a line: a record
    // that is passed over unseen would leave it out.
    explicit TextLook(const SearchNode* search);

    [[nodiscard]] bool has_record() const noexcept { return bits_ != 0; }
    [[nodiscard]] bool has_all_of(TextLook asked) const noexcept {
        return (asked.bits_ & ~bits_) == 0;
    }

private:
    std::uint64_t bits_ = 0;
};

class ClientRoll final {
public:
    // Behind all others: its arrival is the highest. Without memory nothing changes.
    void append(ClientConnection& client);
    void remove(const ClientConnection& client) noexcept;
    void set_look(const ClientConnection& client, TextLook look) noexcept;

    // Calls visit(client, look) in order of arrival, from the first that arrived as this number or
    // later, until it says false.
    template <class Visit>
    void walk(std::uint64_t from, Visit&& visit) const;

private:
    // With its head a stretch fills a page.
    static constexpr std::size_t kRows = 252;
    struct Stretch {
        explicit Stretch(std::uint64_t from) noexcept : first(from) {}

        std::uint64_t first;  // nobody in it arrived earlier, nobody before it later
        std::size_t count = 0;
        std::array<ClientConnection*, kRows> clients;
        std::array<TextLook, kRows> looks;

        [[nodiscard]] std::size_t place_of(std::uint64_t arrival) const noexcept;
        void drop(std::size_t at) noexcept;
    };
    using Stretches = std::vector<std::unique_ptr<Stretch>>;

    // The stretch in which this arrival is, or would be; the roll is not empty.
    [[nodiscard]] std::size_t stretch_of(std::uint64_t arrival) const noexcept;
    [[nodiscard]] bool join(std::size_t left) noexcept;

    Stretches stretches_;
};

template <class Visit>
void ClientRoll::walk(std::uint64_t from, Visit&& visit) const {
    if (stretches_.empty()) return;
    std::size_t number = stretch_of(from);
    std::size_t at = stretches_[number]->place_of(from);
    for (; number < stretches_.size(); ++number, at = 0) {
        const Stretch& stretch = *stretches_[number];
        for (; at < stretch.count; ++at)
            if (!visit(*stretch.clients[at], stretch.looks[at])) return;
    }
}

}  // namespace vorrim
