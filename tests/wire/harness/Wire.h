#pragma once
// The vocabulary of the network as the wire tests speak it: hashes, tags, records, expressions and
// the requests made of them, each turned into bytes here and nowhere else.
//
//     record      [ hash 16 | id u32 | port u16 | count u32 | tags ... ]
//     tag         [ type u8 | name text | value ]       value: 16 bytes, a text or a u32
//     packet      [ E3 | length u32 | payload ]         payload: opcode u8, then its fields
//     datagram    [ E3 | opcode u8 | fields ]

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tests/wire/harness/Bytes.h"

namespace vorrim::wire {

// Names of the standard tags: one byte each.
inline constexpr std::string_view kName = "\x01";
inline constexpr std::string_view kSize = "\x02";
inline constexpr std::string_view kType = "\x03";
inline constexpr std::string_view kFormat = "\x04";
inline constexpr std::string_view kDescription = "\x0B";
inline constexpr std::string_view kVersion = "\x11";
inline constexpr std::string_view kAvailability = "\x15";

struct Hash {
    std::array<std::uint8_t, 16> bytes{};
    auto operator<=>(const Hash&) const = default;
};

// A hash whose first four bytes are `number`, little-endian; `family` fills the rest.
[[nodiscard]] Hash hash_of(std::uint32_t number, std::uint8_t family = 0x77);
void PrintTo(const Hash& hash, std::ostream* out);

struct Tag {
    std::uint8_t type = 0;  // 1 hash, 2 text, 3 number
    std::string name;
    std::string text;
    std::uint32_t number = 0;
    Hash hash{};
    bool operator==(const Tag&) const = default;
};

[[nodiscard]] Tag hash_tag(std::string_view name, const Hash& value);
[[nodiscard]] Tag text_tag(std::string_view name, std::string_view value);
[[nodiscard]] Tag int_tag(std::string_view name, std::uint32_t value);
void PrintTo(const Tag& tag, std::ostream* out);

struct Record {
    Hash hash{};
    std::uint32_t id = 0;
    std::uint16_t port = 0;
    std::vector<Tag> tags;
    bool operator==(const Record&) const = default;

    // Of the first tag of that name; an empty text and 0 when there is none.
    [[nodiscard]] std::string text(std::string_view name) const;
    [[nodiscard]] std::uint32_t number(std::string_view name) const;
};
void PrintTo(const Record& record, std::ostream* out);

// A file as a client publishes it.
[[nodiscard]] Record file(const Hash& hash, std::string_view name, std::uint32_t size = 1000);
// So many files, "song 0" with size 0 and so on, whose hashes do not come in the order of any
// table.
[[nodiscard]] std::vector<Record> songs(std::uint32_t count, std::uint32_t first = 0);
// A client's own record: a name, and a version that the server's default range accepts.
[[nodiscard]] Record client_record(const Hash& hash, std::string_view name,
                                   std::uint32_t version = 60);

[[nodiscard]] Bytes encode(const Hash& hash);
[[nodiscard]] Bytes encode(const Tag& tag);
[[nodiscard]] Bytes encode(const Record& record);
[[nodiscard]] Bytes encode(const std::vector<Record>& records);  // u32 count first

[[nodiscard]] Bytes packet(const Bytes& payload);

// Requests: payloads over TCP.
[[nodiscard]] Bytes login(const Record& client);
[[nodiscard]] Bytes offer(const std::vector<Record>& files);
[[nodiscard]] Bytes search_files(const Bytes& expression);
[[nodiscard]] Bytes search_users(const Bytes& expression);
[[nodiscard]] Bytes more_results();
[[nodiscard]] Bytes get_sources(const Hash& hash);
[[nodiscard]] Bytes find_user(const Hash& hash);
[[nodiscard]] Bytes callback(std::uint32_t wanted);

// Requests: whole datagrams.
[[nodiscard]] Bytes udp_status(std::uint32_t challenge);
[[nodiscard]] Bytes udp_search_files(const Bytes& expression);
[[nodiscard]] Bytes udp_search_users(const Bytes& expression);
[[nodiscard]] Bytes udp_sources(const Hash& hash);
[[nodiscard]] Bytes udp_callback(std::uint32_t address, std::uint16_t port, std::uint32_t wanted);

// Expressions.
enum class Op : std::uint8_t { both = 0, either = 1, but_not = 2, one_of = 3, only_right = 4 };
enum class Is : std::uint8_t {
    equal = 0,
    above = 1,
    below = 2,
    at_least = 3,
    at_most = 4,
    not_ = 5
};
[[nodiscard]] Bytes anything();
[[nodiscard]] Bytes words(std::string_view text);
[[nodiscard]] Bytes tag_contains(std::string_view name, std::string_view value);
[[nodiscard]] Bytes tag_is(std::string_view name, Is is, std::uint32_t value);
[[nodiscard]] Bytes joined(Op op, const Bytes& left, const Bytes& right);
// A tree of `depth` nodes from the root down to its deepest leaf, leaning to one side.
[[nodiscard]] Bytes leaning_left(std::size_t depth, const Bytes& leaf, Op op = Op::both);
[[nodiscard]] Bytes leaning_right(std::size_t depth, const Bytes& leaf, Op op = Op::both);

}  // namespace vorrim::wire
