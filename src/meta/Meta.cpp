#include "meta/Meta.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>

#include "base/Output.h"
#include "base/kx_err.h"
#include "meta/Diagnostics.h"
#include "meta/RecordView.h"

namespace vorrim {

namespace {

// What size() counts for a record besides its tags: a little more than the network form has.
constexpr std::uint32_t kFixedEstimate = 28;
constexpr std::uint32_t kTagCountSize = 4;
constexpr std::size_t kPrintedValue = 255;
constexpr std::string_view kMissing = "(null)";

std::string shown_or_null(TagText text) {
    return std::string(text.value_or(kMissing));
}

}  // namespace

bool Meta::toNetwork(kx_file& to) const {
    try {
        write_bytes(to, hash_.bytes);
        write_32(to, id_);
        write_16(to, port_);
        return tags_to(to, Form::network);
    } catch (const kx_err&) {
        return false;  // the stream takes no more; whoever owns it knows best what to say
    }
}

bool Meta::fromNetwork(kx_file& from) {
    try {
        readAll(from, hash_.bytes.data(), kHashSize);
        id_ = read_32(from);
        port_ = read_16(from);
        if (append_tags(from)) return true;
        diagnostics::unreadable_record();
        return false;
    } catch (const kx_err&) {
        return false;  // ended within the fixed fields: too little to be worth a line
    }
}

bool Meta::toDisk(kx_file& to) const {
    try {
        write_32(to, reserved_);
        write_bytes(to, hash_.bytes);
        write_16(to, static_cast<std::uint16_t>(extra_.size()));
        for (const FileHash& extra : extra_)
            write_bytes(to, extra.bytes);
        return tags_to(to, Form::disk);
    } catch (const kx_err&) {
        return false;
    }
}

bool Meta::fromDisk(kx_file& from) {
    reserved_ = read_32(from);
    readAll(from, hash_.bytes.data(), kHashSize);
    extra_.clear();
    for (std::uint16_t left = read_16(from); left > 0; --left) {
        FileHash extra;
        readAll(from, extra.bytes.data(), kHashSize);
        extra_.push_back(extra);
    }
    if (tags_from_disk(from)) return true;
    current_output().printError("ERROR: Meta::fromDisk()\n");
    return false;
}

std::uint32_t Meta::size() const {
    std::uint32_t total = kFixedEstimate + kTagCountSize;
    for (const auto& tag : tags_)
        total += tag->size();
    return total;
}

bool Meta::tags_to(kx_file& to, Form form) const {
    return saveList(tags_, to, form);
}

bool Meta::tags_from_disk(kx_file& from) {
    clearTags();
    return append_tags(from);
}

bool Meta::append_tags(kx_file& from) {
    const auto count = static_cast<std::int32_t>(read_32(from));
    for (std::int32_t i = 0; i < count; ++i) {
        std::unique_ptr<MetaTag> tag = tagFromBytes(from);
        if (!tag) return false;
        add(std::move(tag));
    }
    return true;
}

std::vector<std::unique_ptr<MetaTag>>::iterator Meta::position(std::string_view name) {
    return std::find_if(tags_.begin(), tags_.end(),
                        [name](const auto& tag) { return tag->has_name(name); });
}

MetaTag* Meta::findTag(std::string_view name) noexcept {
    return const_cast<MetaTag*>(std::as_const(*this).findTag(name));
}

const MetaTag* Meta::findTag(std::string_view name) const noexcept {
    for (const auto& tag : tags_) {
        if (tag->has_name(name)) return tag.get();
    }
    return nullptr;
}

std::optional<TagValue> Meta::getTagValue(std::string_view name) const {
    const MetaTag* tag = findTag(name);
    return tag != nullptr ? std::optional(tag->value()) : std::nullopt;
}

std::uint32_t Meta::getIntTag(std::string_view name) const {
    const std::optional<TagValue> value = getTagValue(name);
    if (!value) return 0;
    if (const auto* hash = std::get_if<FileHash>(&*value)) return hash->first_u32();
    if (const auto* text = std::get_if<TagText>(&*value)) return text_as_u32(text->value_or(""));
    return std::get<std::uint32_t>(*value);
}

TagText Meta::getTextTag(std::string_view name) const {
    const std::optional<TagValue> value = getTagValue(name);
    const auto* text = value ? std::get_if<TagText>(&*value) : nullptr;
    return text != nullptr ? *text : TagText();
}

bool Meta::setTagValue(std::string_view name, const TagValue& value) {
    const auto found = position(name);
    if (found == tags_.end()) return false;
    if (!(*found)->setValue(value)) *found = retyped(**found, value);
    return true;
}

void Meta::setTag(std::string_view name, const TagValue& value) {
    if (!setTagValue(name, value)) add(makeTag(name, value));
}

void Meta::setTagById(TagId id, const TagValue& value) {
    if (!setTagValue(wire_name(id), value)) add(makeTagById(id, value));
}

bool Meta::addTag(std::string_view name, std::uint8_t type) {
    if (findTag(name) != nullptr) return false;
    std::unique_ptr<MetaTag> tag = makeTag(type, name);
    if (!tag) return false;
    add(std::move(tag));
    return true;
}

void Meta::add(std::unique_ptr<MetaTag> tag) {
    tags_.push_back(std::move(tag));
}

void Meta::removeTag(std::string_view name) {
    const auto found = position(name);
    if (found != tags_.end()) tags_.erase(found);
}

void Meta::copyFrom(const Meta& other) {
    if (&other == this) return;
    clearTags();
    for (const auto& tag : other.tags_)
        add(tag->clone());
    id_ = other.id_;
    port_ = other.port_;
    hash_ = other.hash_;
    extra_.insert(extra_.end(), other.extra_.begin(), other.extra_.end());
}

void Meta::print() const {
    Output& output = current_output();
    output.printLine("ID: %u Port: %d", id_, int{port_});
    for (const auto& tag : tags_) {
        const std::string name = shown_or_null(tag->getName());
        const std::string value = shown_or_null(tag->valueText(kPrintedValue));
        output.printLine("%s: %s", name.c_str(), value.c_str());
    }
    output.printLine("Hash: %s", hashToHex(hash_).c_str());
}

}  // namespace vorrim
