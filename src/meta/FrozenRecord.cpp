#include "meta/FrozenRecord.h"

#include <cstring>
#include <new>
#include <utility>

#include "base/file/primitives.h"
#include "base/kx_err.h"
#include "base/memory/PageHeap.h"
#include "meta/Diagnostics.h"
#include "meta/Meta.h"

namespace vorrim {

namespace {

constexpr std::size_t kTypeSize = 1;
constexpr std::size_t kCountSize = RecordLayout::text_header;

using Bytes = std::span<const std::byte>;

// Takes things off the front of bytes that a peer sent. Every operation says whether the thing was
// there as a whole; after a false the source is of no further use.
class Source {
public:
    explicit Source(Bytes bytes) noexcept : rest_(bytes) {}

    [[nodiscard]] bool take(std::size_t size, Bytes& out) noexcept {
        if (rest_.size() < size) return false;
        out = rest_.first(size);
        rest_ = rest_.subspan(size);
        return true;
    }

    // The bytes of a counted string, whole.
    [[nodiscard]] bool take_string(Bytes& out) noexcept {
        Bytes count;
        if (!take(kCountSize, count)) return false;
        const std::size_t size = load_16(count.data());
        return size != kNoTextLength && take(size, out);
    }

    [[nodiscard]] std::size_t left() const noexcept { return rest_.size(); }

private:
    Bytes rest_;
};

// The part of a received string that is kept: texts end at their first zero byte.
Bytes kept(Bytes string) noexcept {
    return string.first(text_of(string).size());
}

struct Tag {
    std::uint8_t type = 0;
    Bytes name;
    Bytes value;
};

enum class TagResult { read, ended, unknown_type };

TagResult read_tag(Source& source, Tag& tag) noexcept {
    Bytes type;
    if (!source.take(kTypeSize, type)) return TagResult::ended;
    tag.type = std::to_integer<std::uint8_t>(type.front());
    bool whole = false;
    switch (tag.type) {
        case TagType::hash:
            whole = source.take_string(tag.name) && source.take(kHashSize, tag.value);
            break;
        case TagType::text:
            whole = source.take_string(tag.name) && source.take_string(tag.value);
            break;
        case TagType::integer:
            whole =
                source.take_string(tag.name) && source.take(RecordLayout::integer_size, tag.value);
            break;
        default:
            return TagResult::unknown_type;
    }
    return whole ? TagResult::read : TagResult::ended;
}

// What one pass over received bytes finds out.
struct Survey {
    std::size_t received = 0;   // bytes that the record takes on the wire
    std::size_t canonical = 0;  // bytes that it will be kept in; not more
    std::int32_t tags = 0;
};

// Nothing when the bytes are no record; what is wrong with them has then been printed.
std::optional<Survey> survey(Bytes bytes) {
    Source source(bytes);
    Bytes fixed;
    if (!source.take(RecordLayout::tags, fixed)) return std::nullopt;
    const auto announced = static_cast<std::int32_t>(load_32(&fixed[RecordLayout::tag_count]));

    Survey found;
    std::size_t dropped = 0;
    for (; found.tags < announced; ++found.tags) {
        Tag tag;
        const TagResult result = read_tag(source, tag);
        if (result != TagResult::read) {
            if (result == TagResult::unknown_type) {
                diagnostics::unknown_tag_type(tag.type);
                diagnostics::unreadable_tag();
            }
            diagnostics::unreadable_record();
            return std::nullopt;
        }
        dropped += tag.name.size() - kept(tag.name).size();
        if (tag.type == TagType::text) dropped += tag.value.size() - kept(tag.value).size();
    }
    found.received = bytes.size() - source.left();
    found.canonical = found.received - dropped;
    return found;
}

std::byte* put(std::byte* to, Bytes bytes) noexcept {
    if (!bytes.empty()) std::memcpy(to, bytes.data(), bytes.size());
    return to + bytes.size();
}

std::byte* put_string(std::byte* to, Bytes string) noexcept {
    store_16(to, static_cast<std::uint16_t>(string.size()));
    return put(to + kCountSize, string);
}

// Writes the canonical form of a surveyed record that differs from what was received.
void write_canonical(std::byte* to, Bytes received, const Survey& found) noexcept {
    Source source(received);
    Bytes fixed;
    if (!source.take(RecordLayout::tags, fixed)) return;
    std::byte* const start = to;
    to = put(to, fixed);
    store_32(start + RecordLayout::tag_count, static_cast<std::uint32_t>(found.tags));
    Tag tag;
    for (std::int32_t i = 0; i < found.tags && read_tag(source, tag) == TagResult::read; ++i) {
        *to++ = std::byte{tag.type};
        to = put_string(to, kept(tag.name));
        to = tag.type == TagType::text ? put_string(to, kept(tag.value)) : put(to, tag.value);
    }
}

}  // namespace

FrozenRecord::FrozenRecord(std::uint32_t length) {
    void* const memory = PageHeap::try_take(sizeof(Block) + length);
    if (memory == nullptr) kx_error("out of memory");
    block_.reset(::new (memory) Block{length, 0});
}

FrozenRecord FrozenRecord::from_network(kx_memory_file& from) {
    const std::uint32_t start = from.tell();
    const Bytes bytes = from.take(from.remaining());
    const std::optional<Survey> found = survey(bytes);
    if (!found) return {};
    from.seek(start + static_cast<std::uint32_t>(found->received));

    FrozenRecord record(static_cast<std::uint32_t>(found->canonical));
    if (found->canonical == found->received) {
        std::memcpy(record.data(), bytes.data(), found->received);
        store_32(record.data() + RecordLayout::tag_count, static_cast<std::uint32_t>(found->tags));
    } else {
        write_canonical(record.data(), bytes, *found);
    }
    return record;
}

FrozenRecord FrozenRecord::from(const Meta& meta) {
    kx_memory_file encoded(meta.size());
    if (!meta.toNetwork(encoded)) return {};
    kx_memory_file decoded = kx_memory_file::reading(encoded.contents());
    FrozenRecord record = from_network(decoded);
    // Bytes left over mean that a text did not fit its count.
    return decoded.remaining() == 0 ? std::move(record) : FrozenRecord();
}

// Finds the availability's place in the record, or makes one.
void FrozenRecord::make_availability() {
    constexpr std::string_view kName = wire_name(TagId::Availability);
    constexpr std::uint32_t kTagSize =
        RecordLayout::tag_name + std::uint32_t{kName.size()} + RecordLayout::integer_size;

    const Bytes old = bytes();
    const std::optional<TagView> tag = view().find_tag(kName);
    if (tag && tag->type == TagType::integer) {
        block_->availability = static_cast<std::uint32_t>(tag->value.data() - old.data());
        return;
    }

    // Where the new tag goes, and what of the record follows it.
    std::size_t place = old.size();
    std::size_t after = old.size();
    if (tag) {
        place = static_cast<std::size_t>(reinterpret_cast<const std::byte*>(tag->name.data()) -
                                         old.data()) -
                RecordLayout::tag_name;
        after = static_cast<std::size_t>(tag->value.data() + tag->value.size() - old.data());
    }
    const std::size_t length = place + kTagSize + (old.size() - after);
    FrozenRecord next(static_cast<std::uint32_t>(length));
    std::byte* to = put(next.data(), old.first(place));
    *to++ = std::byte{TagType::integer};
    to = put_string(to, std::as_bytes(std::span(kName)));
    next.block_->availability = static_cast<std::uint32_t>(to - next.data());
    store_32(to, 0);
    put(to + RecordLayout::integer_size, old.subspan(after));
    if (!tag) store_32(next.data() + RecordLayout::tag_count, view().tag_count() + 1);
    *this = std::move(next);
}

std::optional<std::vector<FrozenRecord>> read_frozen_list(kx_memory_file& from) {
    PageHeap::prepare();
    std::vector<FrozenRecord> records;
    std::int32_t count = 0;
    try {
        count = static_cast<std::int32_t>(read_32(from));
    } catch (const kx_err&) {
        return std::nullopt;  // too short for a count: the list decoder says nothing either
    }
    for (std::int32_t i = 0; i < count; ++i) {
        FrozenRecord record = FrozenRecord::from_network(from);
        if (record.empty()) {
            diagnostics::unreadable_list_item(count, i);
            diagnostics::unreadable_file_list();
            return std::nullopt;
        }
        records.push_back(std::move(record));
    }
    return records;
}

}  // namespace vorrim
