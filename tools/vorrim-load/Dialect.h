#pragma once
// How a server wants to be spoken to, so that the same engine can put the same load on Vorrim and
// on the servers that it is compared with.
//
//     vorrim       who has this file; the answer lists its sources
//     echo         requests and answers of Vorrim's sizes, and nothing else
//     memcached    get and set, text protocol; by datagram the same behind its frame header
//     redis        GET and SET
//     tracker-scrape, tracker-announce    a tracker of torrents, by datagram only

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "Requests.h"

namespace vorrim::load {

// The first whole answer in what a connection has received.
struct Frame {
    std::size_t size = 0;   // 0: it has not come whole yet
    std::uint8_t code = 0;  // what kind it is
    std::span<const std::byte> rest;
};

struct Dialect {
    const char* name;
    Frame (*cut)(std::span<const std::byte> received);
    // Asks for the file of this number, and what an answer to it is called.
    Bytes (*fetch)(std::uint64_t seed, std::uint64_t file);
    std::uint8_t fetched;
    // Stores values of `bytes` bytes for `count` files from `first` on; each is answered on its
    // own. Null where nothing is stored.
    Bytes (*store)(std::uint64_t seed, std::uint64_t first, std::uint64_t count, std::size_t bytes);
    // The same question in one datagram; `ticket` is what the server gave us before, if it does.
    Bytes (*fetch_datagram)(std::uint64_t seed, std::uint64_t file, std::uint64_t ticket);
    // Where datagrams go, counted from the TCP port.
    std::uint16_t datagram_offset;

    // Vorrim's own conversation: clients log in and publish.
    [[nodiscard]] bool is_vorrim() const noexcept { return datagram_offset != 0; }
};

// Answers of the peers' protocols have no codes of their own; all of them count as this one.
inline constexpr std::uint8_t kAnyAnswer = 1;

// Throws std::runtime_error for a name that is not in the list above.
[[nodiscard]] const Dialect& dialect_of(const std::string& name);

// The hash by which a tracker knows a file, in hexadecimal digits.
[[nodiscard]] std::string tracker_hash(std::uint64_t seed, std::uint64_t file);
// What a tracker is asked before anything else, where its answer holds the ticket, and the
// announcement of one client that holds a file.
[[nodiscard]] Bytes tracker_connect();
[[nodiscard]] std::uint64_t tracker_ticket(std::span<const std::byte> answer);
[[nodiscard]] Bytes tracker_announce(std::uint64_t seed, std::uint64_t file, std::uint64_t ticket,
                                     std::uint16_t port);

}  // namespace vorrim::load
