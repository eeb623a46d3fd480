#include "tests/wire/harness/Wire.h"

#include <algorithm>

namespace vorrim::wire {

Hash hash_of(std::uint32_t number, std::uint8_t family) {
    Hash hash;
    hash.bytes.fill(family);
    for (std::size_t i = 0; i < 4; ++i)
        hash.bytes[i] = static_cast<std::uint8_t>((number >> (8 * i)) & 0xFF);
    return hash;
}

void PrintTo(const Hash& hash, std::ostream* out) {
    PrintTo(encode(hash), out);
}

Tag hash_tag(std::string_view name, const Hash& value) {
    return Tag{1, std::string(name), {}, 0, value};
}

Tag text_tag(std::string_view name, std::string_view value) {
    return Tag{2, std::string(name), std::string(value), 0, {}};
}

Tag int_tag(std::string_view name, std::uint32_t value) {
    return Tag{3, std::string(name), {}, value, {}};
}

void PrintTo(const Tag& tag, std::ostream* out) {
    PrintTo(encode(tag), out);
}

namespace {

const Tag* find(const Record& record, std::string_view name) {
    const auto found = std::ranges::find(record.tags, name, &Tag::name);
    return found == record.tags.end() ? nullptr : &*found;
}

}  // namespace

std::string Record::text(std::string_view name) const {
    const Tag* tag = find(*this, name);
    return tag ? tag->text : std::string();
}

std::uint32_t Record::number(std::string_view name) const {
    const Tag* tag = find(*this, name);
    return tag ? tag->number : 0;
}

void PrintTo(const Record& record, std::ostream* out) {
    PrintTo(encode(record), out);
}

Record file(const Hash& hash, std::string_view name, std::uint32_t size) {
    return Record{hash, 0, 0, {text_tag(kName, name), int_tag(kSize, size)}};
}

std::vector<Record> songs(std::uint32_t count, std::uint32_t first) {
    std::vector<Record> files;
    for (std::uint32_t i = first; i < first + count; ++i)
        files.push_back(file(hash_of((i + 1) * 2654435761U), "song " + std::to_string(i), i));
    return files;
}

Record client_record(const Hash& hash, std::string_view name, std::uint32_t version) {
    return Record{hash, 0, 0, {text_tag(kName, name), int_tag(kVersion, version)}};
}

Bytes encode(const Hash& hash) {
    return Bytes(std::span(hash.bytes));
}

Bytes encode(const Tag& tag) {
    Bytes bytes;
    bytes.u8(tag.type).text(tag.name);
    if (tag.type == 1) return bytes.add(encode(tag.hash));
    return tag.type == 2 ? bytes.text(tag.text) : bytes.u32(tag.number);
}

Bytes encode(const Record& record) {
    Bytes bytes = encode(record.hash);
    bytes.u32(record.id).u16(record.port);
    bytes.u32(static_cast<std::uint32_t>(record.tags.size()));
    for (const Tag& tag : record.tags)
        bytes.add(encode(tag));
    return bytes;
}

Bytes encode(const std::vector<Record>& records) {
    Bytes bytes;
    bytes.u32(static_cast<std::uint32_t>(records.size()));
    for (const Record& record : records)
        bytes.add(encode(record));
    return bytes;
}

Bytes packet(const Bytes& payload) {
    return Bytes().u8(0xE3).u32(static_cast<std::uint32_t>(payload.size())).add(payload);
}

Bytes login(const Record& client) {
    return Bytes().u8(0x01).add(encode(client));
}
Bytes offer(const std::vector<Record>& files) {
    return Bytes().u8(0x15).add(encode(files));
}
Bytes search_files(const Bytes& expression) {
    return Bytes().u8(0x16).add(expression);
}
Bytes search_users(const Bytes& expression) {
    return Bytes().u8(0x1A).add(expression);
}
Bytes more_results() {
    return Bytes().u8(0x21);
}
Bytes get_sources(const Hash& hash) {
    return Bytes().u8(0x19).add(encode(hash));
}
Bytes find_user(const Hash& hash) {
    return Bytes().u8(0x1B).add(encode(hash));
}
Bytes callback(std::uint32_t wanted) {
    return Bytes().u8(0x1C).u32(wanted);
}

Bytes udp_status(std::uint32_t challenge) {
    return Bytes().u8(0xE3).u8(0x96).u32(challenge);
}

Bytes udp_search_files(const Bytes& expression) {
    return Bytes().u8(0xE3).u8(0x98).add(expression);
}

Bytes udp_search_users(const Bytes& expression) {
    return Bytes().u8(0xE3).u8(0x9D).add(expression);
}

Bytes udp_sources(const Hash& hash) {
    return Bytes().u8(0xE3).u8(0x9A).add(encode(hash));
}

Bytes udp_callback(std::uint32_t address, std::uint16_t port, std::uint32_t wanted) {
    return Bytes().u8(0xE3).u8(0x9C).u32(address).u16(port).u32(wanted);
}

namespace {

template <typename Code>
std::uint32_t code(Code value) {
    return static_cast<std::uint32_t>(value);
}

}  // namespace

Bytes anything() {
    return Bytes().u8(4);
}
Bytes words(std::string_view text) {
    return Bytes().u8(1).text(text);
}

Bytes tag_contains(std::string_view name, std::string_view value) {
    return Bytes().u8(2).text(value).text(name);
}

Bytes tag_is(std::string_view name, Is is, std::uint32_t value) {
    return Bytes().u8(3).u32(value).u8(code(is)).text(name);
}

Bytes joined(Op op, const Bytes& left, const Bytes& right) {
    return Bytes().u8(0).u8(code(op)).add(left).add(right);
}

Bytes leaning_left(std::size_t depth, const Bytes& leaf, Op op) {
    Bytes bytes;
    for (std::size_t i = 1; i < depth; ++i)
        bytes.u8(0).u8(code(op));
    bytes.add(leaf);
    for (std::size_t i = 1; i < depth; ++i)
        bytes.add(leaf);
    return bytes;
}

Bytes leaning_right(std::size_t depth, const Bytes& leaf, Op op) {
    Bytes bytes;
    for (std::size_t i = 1; i < depth; ++i)
        bytes.u8(0).u8(code(op)).add(leaf);
    return bytes.add(leaf);
}

}  // namespace vorrim::wire
