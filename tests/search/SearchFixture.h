#pragma once
// What the tests of expressions share: records and wire forms written byte by byte.
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/file/kx_memory_file.h"
#include "base/file/primitives.h"
#include "meta/RecordView.h"
#include "search/Search.h"

namespace vorrim::test {

// A record in network form, tag after tag.
class Record {
public:
    explicit Record(const FileHash& hash = {}) : bytes_(256) {
        write_bytes(bytes_, hash.bytes);
        write_32(bytes_, 0);
        write_16(bytes_, 0);
        write_32(bytes_, 0);
    }
    Record&& text(std::string_view name, std::string_view value) && {
        start_tag(TagType::text, name);
        write_string(value, bytes_);
        return std::move(*this);
    }
    Record&& integer(std::string_view name, std::int32_t value) && {
        start_tag(TagType::integer, name);
        write_32(bytes_, static_cast<std::uint32_t>(value));
        return std::move(*this);
    }
    // NOLINTNEXTLINE(google-explicit-constructor): a record is asked as what it shows
    operator RecordView() const { return RecordView(bytes_.contents()); }

private:
    void start_tag(std::uint8_t type, std::string_view name) {
        store_32(bytes_.data() + RecordLayout::tag_count, ++count_);
        write_8(bytes_, type);
        write_string(name, bytes_);
    }

    kx_memory_file bytes_;
    std::uint32_t count_ = 0;
};

inline std::span<const std::byte> as_span(std::string_view text) {
    return std::as_bytes(std::span(text.data(), text.size()));
}

inline Search search_of(std::unique_ptr<SearchNode> root) {
    Search search;
    search.add_term(std::move(root), CombineOp::kAnd);
    return search;
}

inline std::string printed(const SearchNode& node) {
    std::string text;
    node.print(text);
    return text;
}

inline std::string printed(const Search& search) {
    std::string text;
    search.print(text);
    return text;
}

inline std::unique_ptr<SearchNode> word(std::string text) {
    return std::make_unique<SN_Substring>(std::move(text));
}
inline std::unique_ptr<SearchNode> size_above(std::int32_t value) {
    return std::make_unique<SN_IntTagCompare>(value, CompareOp::kGreater, "\x02");
}
inline std::unique_ptr<SearchNode> combine(std::int32_t op, std::unique_ptr<SearchNode> left,
                                           std::unique_ptr<SearchNode> right) {
    return std::make_unique<SN_Operator>(op, std::move(left), std::move(right));
}

}  // namespace vorrim::test
