#include "Records.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "Failure.h"
#include "Text.h"
#include "base/file/primitives.h"
#include "base/kx_err.h"
#include "meta/TagNames.h"

namespace vorrim::cli {

namespace {

[[noreturn]] void unreadable() {
    throw Failure("the server sent an answer that cannot be read");
}

// The first text under this id; empty when there is none.
std::string_view text_tag(RecordView record, TagId id) {
    const auto tag = record.find_tag(wire_name(id));
    return tag && tag->type == TagType::text ? tag->text() : std::string_view{};
}

std::optional<std::uint32_t> number_tag(RecordView record, TagId id) {
    const auto tag = record.find_tag(wire_name(id));
    if (!tag || tag->type != TagType::integer) return std::nullopt;
    return static_cast<std::uint32_t>(tag->integer());
}

std::string shown(std::optional<std::uint32_t> number, std::string (*readable)(std::uint64_t)) {
    return number ? readable(*number) : std::string{};
}

// Where a tag says nothing, JSON says null.
nlohmann::json json_text(std::string_view text) {
    return text.empty() ? nlohmann::json() : nlohmann::json(std::string(text));
}
nlohmann::json json_number(std::optional<std::uint32_t> number) {
    return number ? nlohmann::json(*number) : nlohmann::json();
}

std::string tag_title(const TagView& tag) {
    if (!tag.named) return "";
    if (tag.name.size() == 1) {
        if (const TagRow* row = tag_row(static_cast<signed char>(tag.name[0]))) {
            return std::string(row->display_name);
        }
    }
    return std::string(tag.name);
}

nlohmann::json tag_value(const TagView& tag) {
    switch (tag.type) {
        case TagType::text:
            return std::string(tag.text());
        case TagType::integer:
            return static_cast<std::uint32_t>(tag.integer());
        default:
            return hashToHex(FileHash::at(tag.value.data()));
    }
}

// Every tag under its display name. Of several tags of one name the first is shown, which is the
// one that counts.
nlohmann::json all_tags(RecordView record) {
    nlohmann::json tags = nlohmann::json::object();
    for (const TagView tag : record.tags()) {
        const std::string title = tag_title(tag);
        if (!title.empty() && !tags.contains(title)) tags[title] = tag_value(tag);
    }
    return tags;
}

bool is_high(ClientId id) {
    return id.exceeds_low_range();
}

}  // namespace

std::string dotted(ClientId id) {
    return ipToText(id.value());
}

FrozenRecord read_record(kx_memory_file& data) {
    FrozenRecord record = FrozenRecord::from_network(data);
    if (record.empty()) unreadable();
    return record;
}

std::vector<FrozenRecord> read_records(kx_memory_file& data) {
    auto records = read_frozen_list(data);
    if (!records) unreadable();
    return std::move(*records);
}

std::vector<Source> read_endpoints(kx_memory_file& data) {
    try {
        std::vector<Source> sources(read_8(data));
        for (Source& source : sources) {
            source.id = ClientId(read_32(data));
            source.port = read_16(data);
        }
        return sources;
    } catch (const kx_err&) {
        unreadable();
    }
}

TablePrinter file_table(std::span<const FrozenRecord> records) {
    TablePrinter table({{"NAME", Align::left, Room::flexible},
                        {"SIZE", Align::right},
                        {"TYPE", Align::left, Room::optional},
                        {"FORMAT", Align::left, Room::optional},
                        {"SOURCES", Align::right},
                        {"HASH"}});
    for (const FrozenRecord& frozen : records) {
        const RecordView record = frozen.view();
        table.add_row({printable(text_tag(record, TagId::Name)),
                       shown(number_tag(record, TagId::Size), readable_size),
                       printable(text_tag(record, TagId::Type)),
                       printable(text_tag(record, TagId::Format)),
                       shown(number_tag(record, TagId::Availability), readable_count),
                       hashToHex(record.hash())});
    }
    return table;
}

TablePrinter user_table(std::span<const FrozenRecord> records) {
    TablePrinter table({{"NAME", Align::left, Room::flexible},
                        {"ID"},
                        {"PORT", Align::right},
                        {"REACHABLE"},
                        {"VERSION", Align::right, Room::optional},
                        {"HASH", Align::left, Room::optional}});
    for (const FrozenRecord& frozen : records) {
        const RecordView record = frozen.view();
        const auto version = number_tag(record, TagId::Version);
        const bool logged_in = record.id().value() != 0;
        table.add_row({logged_in ? printable(text_tag(record, TagId::Name)) : "(not logged in)",
                       dotted(record.id()), std::to_string(record.port()),
                       is_high(record.id()) ? "yes" : "no",
                       version ? std::to_string(*version) : std::string{},
                       hashToHex(record.hash())});
    }
    return table;
}

TablePrinter source_table(std::span<const Source> sources) {
    TablePrinter table({{"ID"}, {"PORT", Align::right}, {"REACHABLE"}});
    for (const Source& source : sources) {
        table.add_row({dotted(source.id), std::to_string(source.port),
                       is_high(source.id) ? "yes" : "by call-back"});
    }
    return table;
}

nlohmann::json file_json(RecordView record) {
    return {{"hash", hashToHex(record.hash())},
            {"name", json_text(text_tag(record, TagId::Name))},
            {"size", json_number(number_tag(record, TagId::Size))},
            {"type", json_text(text_tag(record, TagId::Type))},
            {"format", json_text(text_tag(record, TagId::Format))},
            {"sources", json_number(number_tag(record, TagId::Availability))},
            {"first_source", source_json({record.id(), record.port()})},
            {"tags", all_tags(record)}};
}

nlohmann::json user_json(RecordView record) {
    nlohmann::json user = source_json({record.id(), record.port()});
    user["hash"] = hashToHex(record.hash());
    user["name"] = json_text(text_tag(record, TagId::Name));
    user["version"] = json_number(number_tag(record, TagId::Version));
    user["tags"] = all_tags(record);
    return user;
}

nlohmann::json source_json(const Source& source) {
    return {{"id", source.id.value()},
            {"address", dotted(source.id)},
            {"port", source.port},
            {"reachable", is_high(source.id)}};
}

}  // namespace vorrim::cli
