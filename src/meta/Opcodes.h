#pragma once
// Every message of the network, once: its code, its name, and who sends it to whom.
//
//     TCP     E3 | length u32 | opcode | data        clients and the administration door
//     UDP     E3 | opcode | data                     clients and other servers
//
// The codes of the four conversations do not overlap, but for OP_SERVER_MESSAGE, which a remote
// administrator receives too. The layout of each message stands in docs/protocol.md.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vorrim {

// First byte of every TCP header and of every datagram.
inline constexpr std::uint8_t kPacketMarker = 0xE3;
inline constexpr std::uint8_t kDatagramMarker = 0xE3;

// Datagrams go to the port so far above the one that clients connect to.
inline constexpr std::uint16_t kDatagramPortOffset = 4;

// Most entries that a message lists with a one-byte count (sources, servers).
inline constexpr std::uint8_t kMaxEntriesInList = 230;
// Such an entry: address or identifier, and port.
inline constexpr std::uint32_t kListEntryBytes = 6;

enum class Opcode : std::uint8_t {
    OP_LOGIN = 0x01,
    OP_GET_SERVER_LIST = 0x14,
    OP_OFFER_FILES = 0x15,
    OP_SEARCH_FILES = 0x16,
    OP_DISCONNECT = 0x18,
    OP_GET_SOURCES = 0x19,
    OP_SEARCH_USERS = 0x1A,
    OP_FIND_USER = 0x1B,
    OP_CALLBACK_REQUEST = 0x1C,
    OP_GET_ROOMS = 0x1D,
    OP_ROOM_MESSAGE = 0x1E,
    OP_JOIN_ROOM = 0x1F,
    OP_CLIENT_TEXT = 0x20,
    OP_MORE_RESULTS = 0x21,

    OP_SERVER_LIST = 0x32,
    OP_SEARCH_RESULTS = 0x33,
    OP_SERVER_STATUS = 0x34,
    OP_CALLBACK = 0x35,
    OP_CALLBACK_FAILED = 0x36,
    OP_SERVER_MESSAGE = 0x38,
    OP_ROOM_LIST = 0x39,
    OP_ROOM_TEXT = 0x3A,
    OP_ROOM_JOINED = 0x3B,
    OP_ROOM_LEFT = 0x3C,
    OP_ROOM_MEMBERS = 0x3D,
    OP_USER_FOUND = 0x3F,
    OP_ID_ASSIGNED = 0x40,
    OP_SERVER_IDENT = 0x41,
    OP_FOUND_SOURCES = 0x42,
    OP_USER_RESULTS = 0x43,

    CONT_LOGIN = 0x64,
    CONT_STOP = 0x65,
    CONT_COMMAND = 0x66,

    OP_UDP_STATUS_REQUEST = 0x96,
    OP_UDP_STATUS = 0x97,
    OP_UDP_SEARCH_FILES = 0x98,
    OP_UDP_SEARCH_RESULT = 0x99,
    OP_UDP_GET_SOURCES = 0x9A,
    OP_UDP_FOUND_SOURCES = 0x9B,
    OP_UDP_CALLBACK_REQUEST = 0x9C,
    OP_UDP_SEARCH_USERS = 0x9D,
    OP_UDP_CALLBACK_FAILED = 0x9E,
    OP_UDP_SERVER_HELLO = 0xA0,
    OP_UDP_SERVER_LIST = 0xA1,
};

enum class Direction : std::uint8_t {
    client_to_server,       // TCP
    server_to_client,       // TCP; also to a remote administrator
    admin_to_server,        // TCP, administration door
    datagram_to_server,     // UDP request
    datagram_to_client,     // UDP answer; never accepted
    datagram_among_servers  // UDP
};

struct OpcodeInfo {
    Opcode code;
    std::string_view name;
    Direction direction;
};

[[nodiscard]] constexpr std::uint8_t to_byte(Opcode opcode) noexcept {
    return static_cast<std::uint8_t>(opcode);
}

// In rising order of code.
inline constexpr std::array kOpcodes{
    OpcodeInfo{Opcode::OP_LOGIN, "OP_LOGIN", Direction::client_to_server},
    OpcodeInfo{Opcode::OP_GET_SERVER_LIST, "OP_GET_SERVER_LIST", Direction::client_to_server},
    OpcodeInfo{Opcode::OP_OFFER_FILES, "OP_OFFER_FILES", Direction::client_to_server},
    OpcodeInfo{Opcode::OP_SEARCH_FILES, "OP_SEARCH_FILES", Direction::client_to_server},
    OpcodeInfo{Opcode::OP_DISCONNECT, "OP_DISCONNECT", Direction::client_to_server},
    OpcodeInfo{Opcode::OP_GET_SOURCES, "OP_GET_SOURCES", Direction::client_to_server},
    OpcodeInfo{Opcode::OP_SEARCH_USERS, "OP_SEARCH_USERS", Direction::client_to_server},
    OpcodeInfo{Opcode::OP_FIND_USER, "OP_FIND_USER", Direction::client_to_server},
    OpcodeInfo{Opcode::OP_CALLBACK_REQUEST, "OP_CALLBACK_REQUEST", Direction::client_to_server},
    OpcodeInfo{Opcode::OP_GET_ROOMS, "OP_GET_ROOMS", Direction::client_to_server},
    OpcodeInfo{Opcode::OP_ROOM_MESSAGE, "OP_ROOM_MESSAGE", Direction::client_to_server},
    OpcodeInfo{Opcode::OP_JOIN_ROOM, "OP_JOIN_ROOM", Direction::client_to_server},
    OpcodeInfo{Opcode::OP_CLIENT_TEXT, "OP_CLIENT_TEXT", Direction::client_to_server},
    OpcodeInfo{Opcode::OP_MORE_RESULTS, "OP_MORE_RESULTS", Direction::client_to_server},
    OpcodeInfo{Opcode::OP_SERVER_LIST, "OP_SERVER_LIST", Direction::server_to_client},
    OpcodeInfo{Opcode::OP_SEARCH_RESULTS, "OP_SEARCH_RESULTS", Direction::server_to_client},
    OpcodeInfo{Opcode::OP_SERVER_STATUS, "OP_SERVER_STATUS", Direction::server_to_client},
    OpcodeInfo{Opcode::OP_CALLBACK, "OP_CALLBACK", Direction::server_to_client},
    OpcodeInfo{Opcode::OP_CALLBACK_FAILED, "OP_CALLBACK_FAILED", Direction::server_to_client},
    OpcodeInfo{Opcode::OP_SERVER_MESSAGE, "OP_SERVER_MESSAGE", Direction::server_to_client},
    OpcodeInfo{Opcode::OP_ROOM_LIST, "OP_ROOM_LIST", Direction::server_to_client},
    OpcodeInfo{Opcode::OP_ROOM_TEXT, "OP_ROOM_TEXT", Direction::server_to_client},
    OpcodeInfo{Opcode::OP_ROOM_JOINED, "OP_ROOM_JOINED", Direction::server_to_client},
    OpcodeInfo{Opcode::OP_ROOM_LEFT, "OP_ROOM_LEFT", Direction::server_to_client},
    OpcodeInfo{Opcode::OP_ROOM_MEMBERS, "OP_ROOM_MEMBERS", Direction::server_to_client},
    OpcodeInfo{Opcode::OP_USER_FOUND, "OP_USER_FOUND", Direction::server_to_client},
    OpcodeInfo{Opcode::OP_ID_ASSIGNED, "OP_ID_ASSIGNED", Direction::server_to_client},
    OpcodeInfo{Opcode::OP_SERVER_IDENT, "OP_SERVER_IDENT", Direction::server_to_client},
    OpcodeInfo{Opcode::OP_FOUND_SOURCES, "OP_FOUND_SOURCES", Direction::server_to_client},
    OpcodeInfo{Opcode::OP_USER_RESULTS, "OP_USER_RESULTS", Direction::server_to_client},
    OpcodeInfo{Opcode::CONT_LOGIN, "CONT_LOGIN", Direction::admin_to_server},
    OpcodeInfo{Opcode::CONT_STOP, "CONT_STOP", Direction::admin_to_server},
    OpcodeInfo{Opcode::CONT_COMMAND, "CONT_COMMAND", Direction::admin_to_server},
    OpcodeInfo{Opcode::OP_UDP_STATUS_REQUEST, "OP_UDP_STATUS_REQUEST",
               Direction::datagram_to_server},
    OpcodeInfo{Opcode::OP_UDP_STATUS, "OP_UDP_STATUS", Direction::datagram_to_client},
    OpcodeInfo{Opcode::OP_UDP_SEARCH_FILES, "OP_UDP_SEARCH_FILES", Direction::datagram_to_server},
    OpcodeInfo{Opcode::OP_UDP_SEARCH_RESULT, "OP_UDP_SEARCH_RESULT", Direction::datagram_to_client},
    OpcodeInfo{Opcode::OP_UDP_GET_SOURCES, "OP_UDP_GET_SOURCES", Direction::datagram_to_server},
    OpcodeInfo{Opcode::OP_UDP_FOUND_SOURCES, "OP_UDP_FOUND_SOURCES", Direction::datagram_to_client},
    OpcodeInfo{Opcode::OP_UDP_CALLBACK_REQUEST, "OP_UDP_CALLBACK_REQUEST",
               Direction::datagram_to_server},
    OpcodeInfo{Opcode::OP_UDP_SEARCH_USERS, "OP_UDP_SEARCH_USERS", Direction::datagram_to_server},
    OpcodeInfo{Opcode::OP_UDP_CALLBACK_FAILED, "OP_UDP_CALLBACK_FAILED",
               Direction::datagram_to_client},
    OpcodeInfo{Opcode::OP_UDP_SERVER_HELLO, "OP_UDP_SERVER_HELLO",
               Direction::datagram_among_servers},
    OpcodeInfo{Opcode::OP_UDP_SERVER_LIST, "OP_UDP_SERVER_LIST", Direction::datagram_among_servers},
};

// The row of a code; null when no message has it.
[[nodiscard]] constexpr const OpcodeInfo* find_opcode(std::uint8_t code) noexcept {
    for (const OpcodeInfo& row : kOpcodes) {
        if (to_byte(row.code) == code) return &row;
    }
    return nullptr;
}

static_assert(
    [] {
        for (std::size_t i = 1; i < kOpcodes.size(); ++i) {
            if (kOpcodes[i - 1].code >= kOpcodes[i].code) return false;
        }
        return true;
    }(),
    "one row per code, in rising order");

}  // namespace vorrim
