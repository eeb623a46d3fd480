#include "Requests.h"

#include <algorithm>
#include <cmath>
#include <span>
#include <string_view>

#include "base/file/kx_memory_file.h"
#include "base/file/primitives.h"
#include "base/golden_ratio.h"
#include "meta/Opcodes.h"
#include "meta/Packet.h"
#include "meta/TagNames.h"

namespace vorrim::load {

namespace {

constexpr std::uint32_t kClientVersion = 60;
constexpr std::size_t kVocabulary = 50'000;

Bytes framed(Packet packet) {
    packet.finish();
    Bytes bytes(packet.header().begin(), packet.header().end());
    bytes.insert(bytes.end(), packet.payload().begin(), packet.payload().end());
    return bytes;
}

Packet begin(Opcode opcode) {
    Packet packet(64);
    write_8(packet.body(), to_byte(opcode));
    return packet;
}

void string_tag(kx_memory_file& out, TagId id, std::string_view text) {
    write_8(out, 2);
    write_string(wire_name(id), out);
    write_string(text, out);
}

void int_tag(kx_memory_file& out, TagId id, std::uint32_t value) {
    write_8(out, 3);
    write_string(wire_name(id), out);
    write_32(out, value);
}

// The word of this rank: short for the frequent ones, as in any language.
std::string word_of(std::size_t rank) {
    static constexpr std::string_view kSyllables[] = {"ba",  "lo", "mi",  "ter", "ro",  "sa",
                                                      "ne",  "ku", "vin", "da",  "pol", "fe",
                                                      "gra", "hu", "jo",  "stu"};
    std::string text;
    for (std::size_t rest = rank + 1; rest > 0; rest /= 16)
        text += kSyllables[rest % 16];
    return text;
}

std::size_t zipf_rank(Random& random) {
    // Inverse of the distribution function of Zipf's law with exponent 1: n^u is spread like it.
    const double u = static_cast<double>(random.next_u64() >> 11U) /
                     static_cast<double>(std::uint64_t{1} << 53U);
    const double rank = std::pow(static_cast<double>(kVocabulary), u) - 1.0;
    return std::min(static_cast<std::size_t>(rank), kVocabulary - 1);
}

}  // namespace

Hash hash_of(std::uint64_t seed, std::uint64_t file) {
    Random random(seed ^ (file * kGoldenRatio));
    Hash hash;
    for (std::byte& byte : hash)
        byte = static_cast<std::byte>(random.next_u64());
    return hash;
}

std::string word(Random& random) {
    return word_of(zipf_rank(random));
}

std::string name_of(std::uint64_t seed, std::uint64_t file) {
    static constexpr std::string_view kEndings[] = {".mp3", ".avi", ".zip", ".pdf"};
    Random random(~seed ^ (file * 0xD1B54A32D192ED03ULL));
    std::string name;
    const std::uint64_t words = 4 + random.below(6);
    for (std::uint64_t i = 0; i < words; ++i) {
        if (!name.empty()) name += i % 3 == 0 ? " - " : "_";
        name += word(random);
    }
    name += kEndings[random.below(4)];
    return name;
}

Bytes login(std::uint16_t port, std::uint64_t who) {
    Packet packet = begin(Opcode::OP_LOGIN);
    kx_memory_file& out = packet.body();
    write_bytes(out, hash_of(0x10617, port + (who << 16U)));
    write_32(out, 0);
    write_16(out, port);
    write_32(out, 2);
    string_tag(out, TagId::Name, "load");
    int_tag(out, TagId::Version, kClientVersion);
    return framed(std::move(packet));
}

Bytes offer(std::uint64_t seed, std::uint64_t first, std::uint64_t count) {
    static constexpr std::string_view kTypes[] = {"Audio", "Video", "Archive", "Doc"};
    static constexpr std::string_view kFormats[] = {"mp3", "avi", "zip", "pdf"};
    Packet packet = begin(Opcode::OP_OFFER_FILES);
    kx_memory_file& out = packet.body();
    write_32(out, static_cast<std::uint32_t>(count));
    for (std::uint64_t file = first; file < first + count; ++file) {
        write_bytes(out, hash_of(seed, file));
        write_32(out, 0);
        write_16(out, 0);
        write_32(out, 4);
        string_tag(out, TagId::Name, name_of(seed, file));
        int_tag(out, TagId::Size, static_cast<std::uint32_t>(file * 2654435761U));
        string_tag(out, TagId::Type, kTypes[file % 4]);
        string_tag(out, TagId::Format, kFormats[file % 4]);
    }
    return framed(std::move(packet));
}

Bytes get_sources(const Hash& hash) {
    Packet packet = begin(Opcode::OP_GET_SOURCES);
    write_bytes(packet.body(), hash);
    return framed(std::move(packet));
}

Bytes find_nobody() {
    Packet packet = begin(Opcode::OP_FIND_USER);
    write_bytes(packet.body(), hash_of(0xFFFF'FFFF, 0));
    return framed(std::move(packet));
}

Bytes search(const std::string& first, const std::string& second) {
    Packet packet = begin(Opcode::OP_SEARCH_FILES);
    kx_memory_file& out = packet.body();
    if (!second.empty()) {
        write_8(out, 0);
        write_8(out, 0);
    }
    write_8(out, 1);
    write_string(first, out);
    if (!second.empty()) {
        write_8(out, 1);
        write_string(second, out);
    }
    return framed(std::move(packet));
}

Bytes join_room(std::uint16_t room) {
    Packet packet = begin(Opcode::OP_JOIN_ROOM);
    write_16(packet.body(), room);
    return framed(std::move(packet));
}

Bytes room_message(const std::string& text) {
    Packet packet = begin(Opcode::OP_ROOM_MESSAGE);
    write_string(text, packet.body());
    return framed(std::move(packet));
}

Bytes datagram_status(std::uint32_t challenge) {
    kx_memory_file out(16);
    write_8(out, kDatagramMarker);
    write_8(out, to_byte(Opcode::OP_UDP_STATUS_REQUEST));
    write_32(out, challenge);
    return {out.written().begin(), out.written().end()};
}

Bytes datagram_sources(const Hash& hash) {
    kx_memory_file out(32);
    write_8(out, kDatagramMarker);
    write_8(out, to_byte(Opcode::OP_UDP_GET_SOURCES));
    write_bytes(out, hash);
    return {out.written().begin(), out.written().end()};
}

}  // namespace vorrim::load
