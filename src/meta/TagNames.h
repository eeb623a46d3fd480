#pragma once
// The tags that have a number for a name.
//
// On the wire such a name is one byte, the id. The table gives for each id the value type that
// clients and servers agree on and the name under which a tag is printed. Ids from 24 up, and
// negative ones, have no row; a tag with such a one-byte name is named by its text like any other.
// Constant data; any thread.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vorrim {

// The type byte of a tag on the wire.
namespace TagType {
inline constexpr std::uint8_t hash = 1;     // 16 bytes
inline constexpr std::uint8_t text = 2;     // counted string
inline constexpr std::uint8_t integer = 3;  // u32
}  // namespace TagType

enum class TagId : std::int32_t {
    Name = 1,
    Size = 2,
    Type = 3,
    Format = 4,
    CollectionType = 5,
    PartPath = 6,
    PartHash = 7,
    PartTrans = 8,
    GapStart = 9,
    GapEnd = 10,
    Description = 11,
    Ping = 12,
    History = 13,
    Pref = 14,
    Port = 15,
    IP = 16,
    Version = 17,
    TempFileName = 18,
    Priority = 19,
    State = 20,
    Availability = 21,
    QTime = 22,
    Parts = 23,
};

struct TagRow {
    std::uint8_t type;  // 0 in the unused row 0
    bool mark;          // set on three rows; nothing reads it
    std::string_view display_name;
    std::string_view wire_name;  // the byte of the id; empty for row 0
};

// Indexed by id.
inline constexpr std::array kTagNames{
    TagRow{0, false, {}, {}},
    TagRow{TagType::text, true, "Name", "\x01"},
    TagRow{TagType::integer, false, "Size", "\x02"},
    TagRow{TagType::text, false, "Type", "\x03"},
    TagRow{TagType::text, false, "Format", "\x04"},
    TagRow{TagType::text, true, "Collection Type", "\x05"},
    TagRow{TagType::text, false, "Part path", "\x06"},
    TagRow{TagType::hash, false, "Part Hash", "\x07"},
    TagRow{TagType::integer, false, "part trans", "\x08"},
    TagRow{TagType::integer, false, "gap start", "\x09"},
    TagRow{TagType::integer, false, "gap end", "\x0A"},
    TagRow{TagType::text, true, "Description", "\x0B"},
    TagRow{TagType::integer, false, "ping", "\x0C"},
    TagRow{TagType::integer, false, "history", "\x0D"},
    TagRow{TagType::integer, false, "pref", "\x0E"},
    TagRow{TagType::integer, false, "Port", "\x0F"},
    TagRow{TagType::integer, false, "IP", "\x10"},
    TagRow{TagType::integer, false, "Version", "\x11"},
    TagRow{TagType::text, false, "tempFileName", "\x12"},
    TagRow{TagType::integer, false, "Priority", "\x13"},
    TagRow{TagType::integer, false, "state", "\x14"},
    TagRow{TagType::integer, false, "Availability", "\x15"},
    TagRow{TagType::integer, false, "QTime", "\x16"},
    TagRow{TagType::integer, false, "parts", "\x17"},
};

static_assert(kTagNames.size() == static_cast<std::size_t>(TagId::Parts) + 1);

// The row of any number that may be an id; null where the table has none.
[[nodiscard]] constexpr const TagRow* tag_row(std::int32_t id) noexcept {
    if (id <= 0 || static_cast<std::size_t>(id) >= kTagNames.size()) return nullptr;
    return &kTagNames[static_cast<std::size_t>(id)];
}

[[nodiscard]] constexpr const TagRow& tag_row(TagId id) noexcept {
    return kTagNames[static_cast<std::size_t>(id)];
}

// What a tag made by id carries as its name, and what a lookup compares with.
[[nodiscard]] constexpr std::string_view wire_name(TagId id) noexcept {
    return tag_row(id).wire_name;
}

static_assert(
    [] {
        for (std::size_t id = 1; id < kTagNames.size(); ++id) {
            const std::string_view name = kTagNames[id].wire_name;
            if (name.size() != 1 || static_cast<std::size_t>(name.front()) != id) return false;
        }
        return kTagNames.front().wire_name.empty();
    }(),
    "a wire name is the byte of its id");

}  // namespace vorrim
