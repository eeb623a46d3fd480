#include "Dialect.h"

#include <array>
#include <charconv>
#include <stdexcept>
#include <string_view>

#include "base/file/primitives.h"
#include "meta/FileHash.h"
#include "meta/Opcodes.h"

namespace vorrim::load {

namespace {

// Of a question for a file with five sources, header and all.
constexpr std::size_t kEchoAnswer = 53;

Bytes bytes_of(std::string_view text) {
    const auto raw = std::as_bytes(std::span(text));
    return {raw.begin(), raw.end()};
}

std::string_view text_of(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// Sixteen letters, as long as a hash.
std::string key_of(std::uint64_t seed, std::uint64_t file) {
    return hashToHex({hash_of(seed, file)}).substr(0, kHashSize);
}

Frame cut_vorrim(std::span<const std::byte> received) {
    constexpr std::size_t kHeader = 5;
    if (received.size() < kHeader) return {};
    const std::size_t length = load_32(received.data() + 1);
    if (received.size() < kHeader + length) return {};
    return {kHeader + length, std::to_integer<std::uint8_t>(received[kHeader]),
            received.subspan(kHeader + 1, length - 1)};
}

Bytes vorrim_fetch(std::uint64_t seed, std::uint64_t file) {
    return get_sources(hash_of(seed, file));
}

Bytes vorrim_datagram(std::uint64_t seed, std::uint64_t file, std::uint64_t /*ticket*/) {
    return datagram_sources(hash_of(seed, file));
}

Frame cut_echo(std::span<const std::byte> received) {
    if (received.size() < kEchoAnswer) return {};
    return {kEchoAnswer, kAnyAnswer, {}};
}

// The place behind the first line; 0 when that is not whole.
std::size_t line_end(std::string_view text) {
    const std::size_t end = text.find("\r\n");
    return end == std::string_view::npos ? 0 : end + 2;
}

std::size_t leading_number(std::string_view line) {
    std::size_t number = 0;
    std::from_chars(line.data(), line.data() + line.size(), number);
    return number;
}

Frame whole(std::span<const std::byte> received, std::size_t size) {
    return received.size() < size ? Frame{} : Frame{size, kAnyAnswer, {}};
}

Frame cut_memcached(std::span<const std::byte> received) {
    const std::string_view text = text_of(received);
    const std::size_t head = line_end(text);
    if (head == 0) return {};
    if (!text.starts_with("VALUE ")) return whole(received, head);
    // VALUE <key> <flags> <bytes>
    const std::string_view line = text.substr(0, head - 2);
    constexpr std::size_t kTail = 2 + 5;  // the end of the line, then END and another one
    return whole(received, head + leading_number(line.substr(line.rfind(' ') + 1)) + kTail);
}

Bytes memcached_fetch(std::uint64_t seed, std::uint64_t file) {
    return bytes_of("get " + key_of(seed, file) + "\r\n");
}

Bytes memcached_store(std::uint64_t seed, std::uint64_t first, std::uint64_t count,
                      std::size_t bytes) {
    const std::string size = std::to_string(bytes);
    const std::string value(bytes, 'v');
    std::string all;
    for (std::uint64_t file = first; file < first + count; ++file)
        all += "set " + key_of(seed, file) + " 0 0 " + size + "\r\n" + value + "\r\n";
    return bytes_of(all);
}

Bytes memcached_datagram(std::uint64_t seed, std::uint64_t file, std::uint64_t /*ticket*/) {
    using namespace std::string_view_literals;
    // Request number, place in the sequence, datagrams in it, nothing.
    Bytes all = bytes_of("\0\1\0\0\0\1\0\0"sv);
    const Bytes text = memcached_fetch(seed, file);
    all.insert(all.end(), text.begin(), text.end());
    return all;
}

Frame cut_redis(std::span<const std::byte> received) {
    const std::string_view text = text_of(received);
    const std::size_t head = line_end(text);
    if (head == 0) return {};
    if (!text.starts_with("$") || text.starts_with("$-")) return whole(received, head);
    return whole(received, head + leading_number(text.substr(1)) + 2);
}

Bytes redis_fetch(std::uint64_t seed, std::uint64_t file) {
    return bytes_of("*2\r\n$3\r\nGET\r\n$16\r\n" + key_of(seed, file) + "\r\n");
}

Bytes redis_store(std::uint64_t seed, std::uint64_t first, std::uint64_t count, std::size_t bytes) {
    const std::string tail =
        "\r\n$" + std::to_string(bytes) + "\r\n" + std::string(bytes, 'v') + "\r\n";
    std::string all;
    for (std::uint64_t file = first; file < first + count; ++file)
        all += "*3\r\n$3\r\nSET\r\n$16\r\n" + key_of(seed, file) + tail;
    return bytes_of(all);
}

constexpr std::uint64_t kTrackerProtocol = 0x41727101980;
constexpr std::uint32_t kTransaction = 7;
enum class TrackerAction : std::uint32_t { connect = 0, announce = 1, scrape = 2 };

template <class Number>
void append_big_endian(Bytes& to, Number number) {
    for (std::size_t i = sizeof number; i-- > 0;)
        to.push_back(static_cast<std::byte>(number >> (8 * i)));
}

Bytes tracker_request(std::uint64_t ticket, TrackerAction action) {
    Bytes request;
    append_big_endian(request, ticket);
    append_big_endian(request, static_cast<std::uint32_t>(action));
    append_big_endian(request, kTransaction);
    return request;
}

void append_info_hash(Bytes& to, std::uint64_t seed, std::uint64_t file) {
    const Hash hash = hash_of(seed, file);
    to.insert(to.end(), hash.begin(), hash.end());
    append_big_endian(to, std::uint32_t{0});  // these hashes have four bytes more
}

Bytes scrape_datagram(std::uint64_t seed, std::uint64_t file, std::uint64_t ticket) {
    Bytes request = tracker_request(ticket, TrackerAction::scrape);
    append_info_hash(request, seed, file);
    return request;
}

Bytes announce_datagram(std::uint64_t seed, std::uint64_t file, std::uint64_t ticket) {
    return tracker_announce(seed, file, ticket, 1);
}

constexpr std::array kDialects{
    Dialect{"vorrim", cut_vorrim, vorrim_fetch, to_byte(Opcode::OP_FOUND_SOURCES), nullptr,
            vorrim_datagram, kDatagramPortOffset},
    Dialect{"echo", cut_echo, vorrim_fetch, kAnyAnswer, nullptr, vorrim_datagram, 0},
    Dialect{"memcached", cut_memcached, memcached_fetch, kAnyAnswer, memcached_store,
            memcached_datagram, 0},
    Dialect{"redis", cut_redis, redis_fetch, kAnyAnswer, redis_store, nullptr, 0},
    Dialect{"tracker-scrape", cut_echo, nullptr, kAnyAnswer, nullptr, scrape_datagram, 0},
    Dialect{"tracker-announce", cut_echo, nullptr, kAnyAnswer, nullptr, announce_datagram, 0},
};

}  // namespace

const Dialect& dialect_of(const std::string& name) {
    for (const Dialect& dialect : kDialects) {
        if (name == dialect.name) return dialect;
    }
    throw std::runtime_error("nothing here speaks " + name);
}

std::string tracker_hash(std::uint64_t seed, std::uint64_t file) {
    return hashToHex({hash_of(seed, file)}) + "00000000";  // as long as append_info_hash makes it
}

Bytes tracker_connect() {
    return tracker_request(kTrackerProtocol, TrackerAction::connect);
}

std::uint64_t tracker_ticket(std::span<const std::byte> answer) {
    constexpr std::size_t kTicketAt = 8;
    if (answer.size() < kTicketAt + sizeof(std::uint64_t)) {
        throw std::runtime_error("the tracker did not let us in");
    }
    std::uint64_t ticket = 0;
    for (std::size_t i = 0; i < sizeof ticket; ++i)
        ticket = ticket << 8U | std::to_integer<std::uint64_t>(answer[kTicketAt + i]);
    return ticket;
}

Bytes tracker_announce(std::uint64_t seed, std::uint64_t file, std::uint64_t ticket,
                       std::uint16_t port) {
    Bytes request = tracker_request(ticket, TrackerAction::announce);
    append_info_hash(request, seed, file);
    request.resize(request.size() + 20);                 // who asks
    append_big_endian(request, std::uint64_t{0});        // downloaded
    append_big_endian(request, std::uint64_t{1 << 20});  // left
    append_big_endian(request, std::uint64_t{0});        // uploaded
    append_big_endian(request, std::uint32_t{0});        // no event
    append_big_endian(request, std::uint32_t{0});        // the sender's address
    append_big_endian(request, std::uint32_t{port});     // a key: nothing but a number
    append_big_endian(request, std::uint32_t{5});        // clients wanted
    append_big_endian(request, port);
    return request;
}

}  // namespace vorrim::load
