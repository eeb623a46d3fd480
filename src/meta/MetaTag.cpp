#include "meta/MetaTag.h"

#include "base/Output.h"
#include "base/kx_err.h"
#include "meta/Diagnostics.h"
#include "meta/RecordView.h"

namespace vorrim {

namespace {

constexpr std::uint32_t kTypeSize = 1;
constexpr std::uint32_t kCountSize = RecordLayout::text_header;

std::uint32_t length(std::string_view text) noexcept {
    return static_cast<std::uint32_t>(text.size());
}

TagText text_or_none(const kx_string& text) noexcept {
    return text.null() ? TagText() : TagText(text.view());
}

void assign(kx_string& to, TagText text) {
    if (text) {
        to.assign(*text);
    } else {
        to.clear();
    }
}

}  // namespace

MetaTag::MetaTag(std::uint8_t type, TagText name) : type_(type) {
    assign(name_, name);
}

TagText MetaTag::getName() const noexcept {
    const TagRow* row = tag_row(id_);
    return row != nullptr ? TagText(row->display_name) : text_or_none(name_);
}

bool MetaTag::toBytes(kx_file& to) const {
    try {
        write_8(to, type_);
        write_string(name_.null() ? kNoName : name_.view(), to);
    } catch (const kx_err&) {
        current_output().printVerbose("**KX error in MetaTag::toBytes()\n");
    }
    return write_value(to);
}

bool MetaTag::fromBytes(kx_file& from) {
    id_ = 0;
    name_ = read_string(from);
    const std::string_view name = name_.view();
    if (name == kNoName) {
        name_.clear();
    } else if (name.size() == 1) {
        id_ = static_cast<signed char>(name.front());
    }
    read_value(from);
    return true;
}

std::uint32_t MetaTag::size() const {
    return kTypeSize + kCountSize + length(name_.null() ? kNoName : name_.view()) + value_size();
}

MetaTagHash::MetaTagHash(TagText name, const FileHash& value)
    : MetaTag(TagType::hash, name), value_(value) {}

std::unique_ptr<MetaTag> MetaTagHash::clone() const {
    return std::make_unique<MetaTagHash>(*this);
}

bool MetaTagHash::setValue(const TagValue& value) {
    const auto* hash = std::get_if<FileHash>(&value);
    if (hash != nullptr) value_ = *hash;
    return hash != nullptr;
}

std::optional<std::string> MetaTagHash::valueText(std::size_t) const {
    return hashToHex(value_);
}

bool MetaTagHash::write_value(kx_file& to) const {
    write_bytes(to, value_.bytes);
    return true;
}

void MetaTagHash::read_value(kx_file& from) {
    readAll(from, value_.bytes.data(), kHashSize);
}

MetaTagString::MetaTagString(TagText name, TagText value) : MetaTag(TagType::text, name) {
    assign(value_, value);
}

std::unique_ptr<MetaTag> MetaTagString::clone() const {
    return std::make_unique<MetaTagString>(*this);
}

TagValue MetaTagString::value() const {
    return text_or_none(value_);
}

bool MetaTagString::setValue(const TagValue& value) {
    const auto* text = std::get_if<TagText>(&value);
    if (text != nullptr) assign(value_, *text);
    return text != nullptr;
}

std::optional<std::string> MetaTagString::valueText(std::size_t limit) const {
    if (value_.null()) return std::nullopt;
    return std::string(value_.view().substr(0, limit - 1));
}

bool MetaTagString::write_value(kx_file& to) const {
    try {
        write_string(value_, to);
        return true;
    } catch (const kx_err&) {
        current_output().printVerbose("**KX error in MetaTagString::toBytes()\n");
        return false;
    }
}

void MetaTagString::read_value(kx_file& from) {
    value_ = read_string(from);
}

std::uint32_t MetaTagString::value_size() const {
    return kCountSize + length(value_.view());
}

MetaTagInt::MetaTagInt(TagText name, std::uint32_t value)
    : MetaTag(TagType::integer, name), value_(value) {}

std::unique_ptr<MetaTag> MetaTagInt::clone() const {
    return std::make_unique<MetaTagInt>(*this);
}

bool MetaTagInt::setValue(const TagValue& value) {
    const auto* number = std::get_if<std::uint32_t>(&value);
    if (number != nullptr) value_ = *number;
    return number != nullptr;
}

std::optional<std::string> MetaTagInt::valueText(std::size_t) const {
    return std::to_string(static_cast<std::int32_t>(value_));
}

bool MetaTagInt::write_value(kx_file& to) const {
    write_32(to, value_);
    return true;
}

void MetaTagInt::read_value(kx_file& from) {
    value_ = read_32(from);
}

std::uint32_t MetaTagInt::value_size() const {
    return RecordLayout::integer_size;
}

std::unique_ptr<MetaTag> makeTag(std::uint8_t type, TagText name) {
    switch (type) {
        case TagType::hash:
            return std::make_unique<MetaTagHash>(name);
        case TagType::text:
            return std::make_unique<MetaTagString>(name);
        case TagType::integer:
            return std::make_unique<MetaTagInt>(name);
        default:
            diagnostics::unknown_tag_type(type);
            return nullptr;
    }
}

std::unique_ptr<MetaTag> makeTag(TagText name, const TagValue& value) {
    std::unique_ptr<MetaTag> tag = makeTag(tag_type(value), name);
    tag->setValue(value);
    return tag;
}

std::unique_ptr<MetaTag> makeTagById(TagId id, const TagValue& value) {
    std::unique_ptr<MetaTag> tag = makeTag(wire_name(id), value);
    tag->id_ = static_cast<std::int32_t>(id);
    return tag;
}

std::unique_ptr<MetaTag> retyped(const MetaTag& tag, const TagValue& value) {
    std::unique_ptr<MetaTag> other = makeTag(text_or_none(tag.name()), value);
    other->id_ = tag.id();
    return other;
}

std::unique_ptr<MetaTag> tagFromBytes(kx_file& from) {
    try {
        std::unique_ptr<MetaTag> tag = makeTag(read_8(from), TagText());
        if (tag && tag->fromBytes(from)) return tag;
        diagnostics::unreadable_tag();
    } catch (const kx_err&) {
        // The bytes ended early. The decoder of the record says what that means.
    }
    return nullptr;
}

}  // namespace vorrim
