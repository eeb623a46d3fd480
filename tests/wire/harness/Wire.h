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
inline constexpr std::string_view kDescription = "\x0B";
inline constexpr std::string_view kVersion = "\x11";
inline constexpr std::string_view kAvailability = "\x15";

struct Hash {
    std::array<std::uint8_t, 16> bytes{};
    auto operator<=>(const Hash&) const = default;
    [[nodiscard]] Bytes encode() const { return Bytes(std::span(bytes)); }
};

// A hash whose first four bytes are `number`, little-endian; `family` fills the rest.
[[nodiscard]] inline Hash hash_of(std::uint32_t number, std::uint8_t family = 0x77) {
    Hash hash;
    hash.bytes.fill(family);
    for (std::size_t i = 0; i < 4; ++i)
        hash.bytes[i] = static_cast<std::uint8_t>((number >> (8 * i)) & 0xFF);
    return hash;
}

struct Tag {
    std::uint8_t type = 0;  // 1 hash, 2 text, 3 number
    std::string name;
    std::string text;
    std::uint32_t number = 0;
    Hash hash{};
    bool operator==(const Tag&) const = default;

    [[nodiscard]] Bytes encode() const {
        Bytes bytes = Bytes().u8(type).text(name);
        if (type == 1) return bytes.add(hash.encode());
        return type == 2 ? bytes.text(text) : bytes.u32(number);
    }
};

[[nodiscard]] inline Tag hash_tag(std::string_view name, const Hash& value) {
    return Tag{1, std::string(name), {}, 0, value};
}
[[nodiscard]] inline Tag text_tag(std::string_view name, std::string_view value) {
    return Tag{2, std::string(name), std::string(value), 0, {}};
}
[[nodiscard]] inline Tag int_tag(std::string_view name, std::uint32_t value) {
    return Tag{3, std::string(name), {}, value, {}};
}

struct Record {
    Hash hash{};
    std::uint32_t id = 0;
    std::uint16_t port = 0;
    std::vector<Tag> tags;
    bool operator==(const Record&) const = default;

    [[nodiscard]] Bytes encode() const {
        Bytes bytes = hash.encode().u32(id).u16(port);
        bytes.u32(static_cast<std::uint32_t>(tags.size()));
        for (const Tag& tag : tags)
            bytes.add(tag.encode());
        return bytes;
    }
    // Of the first tag of that name; empty or 0 when there is none.
    [[nodiscard]] Tag tag(std::string_view name) const {
        const auto found = std::ranges::find(tags, name, &Tag::name);
        return found == tags.end() ? Tag{} : *found;
    }
    [[nodiscard]] std::string text(std::string_view name) const { return tag(name).text; }
    [[nodiscard]] std::uint32_t number(std::string_view name) const { return tag(name).number; }
};

[[nodiscard]] inline Bytes encode(const std::vector<Record>& records) {  // u32 count first
    Bytes bytes = Bytes().u32(static_cast<std::uint32_t>(records.size()));
    for (const Record& record : records)
        bytes.add(record.encode());
    return bytes;
}
inline void PrintTo(const Record& record, std::ostream* out) {
    PrintTo(record.encode(), out);
}

// A file as a client publishes it.
[[nodiscard]] inline Record file(const Hash& hash, std::string_view name,
                                 std::uint32_t size = 1000) {
    return Record{hash, 0, 0, {text_tag(kName, name), int_tag(kSize, size)}};
}
// So many files, "song 0" with size 0 and so on, whose hashes do not come in the order of any
// table.
[[nodiscard]] inline std::vector<Record> songs(std::uint32_t count, std::uint32_t first = 0) {
    std::vector<Record> files;
    for (std::uint32_t i = first; i < first + count; ++i)
        files.push_back(file(hash_of((i + 1) * 2654435761U), "song " + std::to_string(i), i));
    return files;
}
// A client's own record: a name, and a version that the server's default range accepts.
[[nodiscard]] inline Record client_record(const Hash& hash, std::string_view name,
                                          std::uint32_t version = 60) {
    return Record{hash, 0, 0, {text_tag(kName, name), int_tag(kVersion, version)}};
}

// A server list file, of servers without tags: no save writes one, since a load adds the tags that
// every server has.
[[nodiscard]] inline std::string server_list(std::uint32_t count) {
    Bytes bytes = Bytes().u8(0x0E).u32(count);
    for (std::uint32_t i = 0; i < count; ++i)
        bytes.u32(0x0100007F + (i << 8U)).u16(1000 + i).u32(0);
    return bytes.string();
}

[[nodiscard]] inline Bytes packet(const Bytes& payload) {
    return Bytes().u8(0xE3).u32(static_cast<std::uint32_t>(payload.size())).add(payload);
}

// Requests: payloads over TCP.
[[nodiscard]] inline Bytes login(const Record& client) {
    return Bytes().u8(0x01).add(client.encode());
}
[[nodiscard]] inline Bytes offer(const std::vector<Record>& files) {
    return Bytes().u8(0x15).add(encode(files));
}
[[nodiscard]] inline Bytes search_files(const Bytes& expression) {
    return Bytes().u8(0x16).add(expression);
}
[[nodiscard]] inline Bytes search_users(const Bytes& expression) {
    return Bytes().u8(0x1A).add(expression);
}
[[nodiscard]] inline Bytes more_results() {
    return Bytes().u8(0x21);
}
[[nodiscard]] inline Bytes get_sources(const Hash& hash) {
    return Bytes().u8(0x19).add(hash.encode());
}
[[nodiscard]] inline Bytes find_user(const Hash& hash) {
    return Bytes().u8(0x1B).add(hash.encode());
}
[[nodiscard]] inline Bytes callback(std::uint32_t wanted) {
    return Bytes().u8(0x1C).u32(wanted);
}

// Requests: whole datagrams.
[[nodiscard]] inline Bytes udp_status(std::uint32_t challenge) {
    return hex("E3 96").u32(challenge);
}
[[nodiscard]] inline Bytes udp_search_files(const Bytes& expression) {
    return hex("E3 98").add(expression);
}
[[nodiscard]] inline Bytes udp_search_users(const Bytes& expression) {
    return hex("E3 9D").add(expression);
}
[[nodiscard]] inline Bytes udp_sources(const Hash& hash) {
    return hex("E3 9A").add(hash.encode());
}
[[nodiscard]] inline Bytes udp_callback(std::uint32_t address, std::uint16_t port,
                                        std::uint32_t wanted) {
    return hex("E3 9C").u32(address).u16(port).u32(wanted);
}

// Expressions.
enum class Op : std::uint8_t { both, either, but_not, one_of, only_right };
enum class Is : std::uint8_t { equal, above, below, at_least, at_most, not_ };

[[nodiscard]] inline Bytes anything() {
    return Bytes().u8(4);
}
[[nodiscard]] inline Bytes words(std::string_view text) {
    return Bytes().u8(1).text(text);
}
[[nodiscard]] inline Bytes tag_contains(std::string_view name, std::string_view value) {
    return Bytes().u8(2).text(value).text(name);
}
[[nodiscard]] inline Bytes tag_is(std::string_view name, Is is, std::uint32_t value) {
    return Bytes().u8(3).u32(value).u8(static_cast<std::uint8_t>(is)).text(name);
}
[[nodiscard]] inline Bytes joined(Op op, const Bytes& left, const Bytes& right) {
    return Bytes().u8(0).u8(static_cast<std::uint8_t>(op)).add(left).add(right);
}
// A full tree: the expression joined with itself, and that again, so many times.
[[nodiscard]] inline Bytes doubled(int times, Op op, Bytes expression) {
    for (int i = 0; i < times; ++i)
        expression = joined(op, expression, expression);
    return expression;
}
// A tree of `depth` nodes from the root down to its deepest leaf, leaning to one side.
[[nodiscard]] inline Bytes leaning_left(std::size_t depth, const Bytes& leaf, Op op = Op::both) {
    Bytes bytes;
    for (std::size_t i = 1; i < depth; ++i)
        bytes.u8(0).u8(static_cast<std::uint8_t>(op));
    for (std::size_t i = 0; i < depth; ++i)
        bytes.add(leaf);
    return bytes;
}
[[nodiscard]] inline Bytes leaning_right(std::size_t depth, const Bytes& leaf, Op op = Op::both) {
    Bytes bytes;
    for (std::size_t i = 1; i < depth; ++i)
        bytes.u8(0).u8(static_cast<std::uint8_t>(op)).add(leaf);
    return bytes.add(leaf);
}

}  // namespace vorrim::wire
