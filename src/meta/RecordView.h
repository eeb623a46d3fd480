#pragma once
// A look at a record that lies in memory in its canonical network form.
//
//     [ hash 16 | id u32 | port u16 | tag count u32 | tag | tag | ... ]
//     0         16       20         22              26
//
//     a tag:    [ type | n u16, name | value ]
//                 1 hash      16 bytes
//                 2 text      u16 count, bytes
//                 3 integer   u32
//
// Canonical means that decoding into a Meta and encoding again would give the same bytes: the count
// is the number of tags that follow, no name or text holds a zero byte, and a tag without a name
// has the name "n". A view checks nothing; FrozenRecord is where such bytes come from.
//
// Walking the tags is the hottest loop of the server (every search does it for every candidate):
// it allocates nothing, calls nothing, and touches each byte of the record at most once.
//
// Ownership   None: a view is two words, copied freely, and lives no longer than the bytes.
// Threads     Any, as long as nobody patches the record.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <optional>
#include <span>
#include <string_view>
#include <type_traits>

#include "base/file/primitives.h"
#include "meta/ClientId.h"
#include "meta/FileHash.h"
#include "meta/TagNames.h"

namespace vorrim {

namespace RecordLayout {
inline constexpr std::uint32_t id = 16;
inline constexpr std::uint32_t port = 20;
inline constexpr std::uint32_t tag_count = 22;
inline constexpr std::uint32_t tags = 26;  // where the first tag starts

inline constexpr std::uint32_t tag_name = 3;      // in a tag: type byte and name count come first
inline constexpr std::uint32_t text_header = 2;   // count in front of a text
inline constexpr std::uint32_t integer_size = 4;  // value of an integer tag
}  // namespace RecordLayout

// What the name of a tag without a name is on the wire.
inline constexpr std::string_view kNoName = "n";

// What a text counts as where a number is asked for: its first four bytes, filled up with zeros.
[[nodiscard]] inline std::uint32_t text_as_u32(std::string_view text) noexcept {
    std::array<char, RecordLayout::integer_size> bytes{};
    text.copy(bytes.data(), bytes.size());
    return load_32(std::as_bytes(std::span(bytes)).data());
}

struct TagView {
    std::uint8_t type;                 // one of TagType
    bool named;                        // false: no lookup finds the tag
    std::string_view name;             // the wire name; "n" when there is none
    std::span<const std::byte> value;  // the text's bytes, the 4 bytes, or the 16 bytes

    // Of a text tag.
    [[nodiscard]] std::string_view text() const noexcept {
        return {reinterpret_cast<const char*>(value.data()), value.size()};
    }

    // Of an integer tag (of a hash tag: its first four bytes). Not for text tags.
    [[nodiscard]] std::int32_t integer() const noexcept {
        return static_cast<std::int32_t>(load_32(value.data()));
    }

    // Most lookups are for a name of one byte among names of one byte: settled without a call.
    [[nodiscard]] bool has_name(std::string_view wanted) const noexcept {
        if (!named || name.size() != wanted.size()) return false;
        if (wanted.empty()) return true;
        return name.front() == wanted.front() && (wanted.size() == 1 || name == wanted);
    }

    // Reads the tag at `at` into this one and returns where the next begins.
    const std::byte* parse(const std::byte* at) noexcept {
        const std::size_t name_size = load_16(at + 1);
        type = std::to_integer<std::uint8_t>(*at);
        at += RecordLayout::tag_name;
        name = {reinterpret_cast<const char*>(at), name_size};
        named = name_size != kNoName.size() || name.front() != kNoName.front();
        at += name_size;
        std::size_t value_size = kHashSize;
        if (type == TagType::text) {
            value_size = load_16(at);
            at += RecordLayout::text_header;
        } else if (type == TagType::integer) {
            value_size = RecordLayout::integer_size;
        }
        value = {at, value_size};
        return at + value_size;
    }
};

class RecordView {
public:
    class TagIterator {
    public:
        using value_type = TagView;
        using difference_type = std::ptrdiff_t;
        using iterator_concept = std::forward_iterator_tag;

        TagIterator() noexcept = default;
        TagIterator(const std::byte* at, const std::byte* end) noexcept : at_(at), end_(end) {
            load();
        }

        [[nodiscard]] TagView operator*() const noexcept { return tag_; }
        TagIterator& operator++() noexcept {
            at_ = next_;
            load();
            return *this;
        }
        TagIterator operator++(int) noexcept {
            const TagIterator before = *this;
            ++*this;
            return before;
        }
        friend bool operator==(const TagIterator& a, const TagIterator& b) noexcept {
            return a.at_ == b.at_;
        }
        friend bool operator==(const TagIterator& a, std::default_sentinel_t) noexcept {
            return a.at_ == a.end_;
        }

    private:
        void load() noexcept {
            if (at_ != end_) next_ = tag_.parse(at_);
        }

        const std::byte* at_ = nullptr;
        const std::byte* next_ = nullptr;
        const std::byte* end_ = nullptr;
        TagView tag_{};
    };

    class Tags {
    public:
        Tags(const std::byte* begin, const std::byte* end) noexcept : begin_(begin), end_(end) {}
        [[nodiscard]] TagIterator begin() const noexcept { return {begin_, end_}; }
        [[nodiscard]] std::default_sentinel_t end() const noexcept { return {}; }

    private:
        const std::byte* begin_;
        const std::byte* end_;
    };

    // The bytes must be one whole record in canonical form.
    explicit RecordView(std::span<const std::byte> bytes) noexcept : bytes_(bytes) {}

    [[nodiscard]] FileHash hash() const noexcept { return FileHash::at(bytes_.data()); }
    [[nodiscard]] ClientId id() const noexcept {
        return ClientId(load_32(bytes_.data() + RecordLayout::id));
    }
    [[nodiscard]] std::uint16_t port() const noexcept {
        return load_16(bytes_.data() + RecordLayout::port);
    }
    [[nodiscard]] std::uint32_t tag_count() const noexcept {
        return load_32(bytes_.data() + RecordLayout::tag_count);
    }
    [[nodiscard]] std::span<const std::byte> bytes() const noexcept { return bytes_; }

    // for (const TagView& tag : record.tags()), in record order.
    [[nodiscard]] Tags tags() const noexcept {
        return {bytes_.data() + RecordLayout::tags, bytes_.data() + bytes_.size()};
    }

    // The first tag of that name, compared byte by byte.
    [[nodiscard]] std::optional<TagView> find_tag(std::string_view name) const noexcept {
        for (const TagView& tag : tags()) {
            if (tag.has_name(name)) return tag;
        }
        return std::nullopt;
    }

    // The number in the first tag of that name: the value of an integer tag, the first four bytes
    // of the value of any other; 0 when there is no such tag.
    [[nodiscard]] std::uint32_t int_tag(std::string_view name) const noexcept {
        const std::optional<TagView> tag = find_tag(name);
        if (!tag) return 0;
        if (tag->type == TagType::text) return text_as_u32(tag->text());
        return static_cast<std::uint32_t>(tag->integer());
    }

private:
    std::span<const std::byte> bytes_;
};

static_assert(std::is_trivially_copyable_v<RecordView>);
static_assert(std::forward_iterator<RecordView::TagIterator>);

}  // namespace vorrim
