#pragma once
// A tag: one typed, named value of a record.
//
//     [ type | name: counted string | value ]
//       1    hash     16 bytes
//       2    text     counted string
//       3    integer  u32
//
// A tag is named by a text or by an id of the tag-name table; on the wire the id is a name of one
// byte. A tag without a name travels under the name "n". The network form and the disk form are the
// same bytes.
//
// Ownership   A tag owns its texts. Factories give the tag to the caller.
// Threads     None inside.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "base/string/kx_string.h"
#include "meta/FileHash.h"
#include "meta/Serializable.h"
#include "meta/TagNames.h"

namespace vorrim {

// A text that may be missing, which is not the same as empty.
using TagText = std::optional<std::string_view>;

// A tag's value. Texts are borrowed: from whoever sets it, or from the tag that it was asked of.
using TagValue = std::variant<FileHash, TagText, std::uint32_t>;

// The type of the tag that carries such a value.
[[nodiscard]] constexpr std::uint8_t tag_type(const TagValue& value) noexcept {
    return static_cast<std::uint8_t>(value.index() + TagType::hash);
}

class MetaTag : public Serializable {
public:
    [[nodiscard]] std::uint8_t type() const noexcept { return type_; }
    // 0 for a tag named by text.
    [[nodiscard]] std::int32_t id() const noexcept { return id_; }
    // The wire name; null for a tag without a name.
    [[nodiscard]] const kx_string& name() const noexcept { return name_; }
    // The display name of the tag's id where the table has one, else its own name; may be null.
    [[nodiscard]] TagText getName() const noexcept;
    // Exactly this name, byte by byte. A tag without a name has none that is equal.
    [[nodiscard]] bool has_name(std::string_view wanted) const noexcept {
        return !name_.null() && name_.view() == wanted;
    }

    // Writes the tag. False when the value cannot be encoded, after saying so; a type or name that
    // cannot be written is said too, and the value written nevertheless.
    [[nodiscard]] bool toBytes(kx_file& to) const;
    // Reads what follows the type byte. Raises kx_err when the bytes end early.
    [[nodiscard]] bool fromBytes(kx_file& from);

    [[nodiscard]] bool toNetwork(kx_file& to) const final { return toBytes(to); }
    [[nodiscard]] bool fromNetwork(kx_file& from) final { return fromBytes(from); }
    [[nodiscard]] bool toDisk(kx_file& to) const final { return toBytes(to); }
    [[nodiscard]] bool fromDisk(kx_file& from) final { return fromBytes(from); }
    // Exactly the bytes of the wire form.
    [[nodiscard]] std::uint32_t size() const final;

    [[nodiscard]] virtual std::unique_ptr<MetaTag> clone() const = 0;
    [[nodiscard]] virtual TagValue value() const = 0;
    // False, and nothing changed, when the value is of another type than the tag.
    virtual bool setValue(const TagValue& value) = 0;
    // The value in words: a text cut to less than `limit` bytes (a missing text gives none), an
    // integer in signed decimal, a hash in hexadecimal.
    [[nodiscard]] virtual std::optional<std::string> valueText(std::size_t limit) const = 0;

protected:
    MetaTag(std::uint8_t type, TagText name);

private:
    friend std::unique_ptr<MetaTag> makeTagById(TagId id, const TagValue& value);
    friend std::unique_ptr<MetaTag> retyped(const MetaTag& tag, const TagValue& value);

    [[nodiscard]] virtual bool write_value(kx_file& to) const = 0;
    virtual void read_value(kx_file& from) = 0;
    [[nodiscard]] virtual std::uint32_t value_size() const = 0;

    std::int32_t id_ = 0;
    kx_string name_;
    std::uint8_t type_;
};

class MetaTagHash final : public MetaTag {
public:
    explicit MetaTagHash(TagText name, const FileHash& value = {});
    [[nodiscard]] std::unique_ptr<MetaTag> clone() const override;
    [[nodiscard]] TagValue value() const override { return value_; }
    bool setValue(const TagValue& value) override;
    [[nodiscard]] std::optional<std::string> valueText(std::size_t limit) const override;

private:
    [[nodiscard]] bool write_value(kx_file& to) const override;
    void read_value(kx_file& from) override;
    [[nodiscard]] std::uint32_t value_size() const override { return kHashSize; }

    FileHash value_;
};

class MetaTagString final : public MetaTag {
public:
    explicit MetaTagString(TagText name, TagText value = {});
    [[nodiscard]] std::unique_ptr<MetaTag> clone() const override;
    [[nodiscard]] TagValue value() const override;
    bool setValue(const TagValue& value) override;
    [[nodiscard]] std::optional<std::string> valueText(std::size_t limit) const override;

private:
    [[nodiscard]] bool write_value(kx_file& to) const override;
    void read_value(kx_file& from) override;
    [[nodiscard]] std::uint32_t value_size() const override;

    kx_string value_;
};

class MetaTagInt final : public MetaTag {
public:
    explicit MetaTagInt(TagText name, std::uint32_t value = 0);
    [[nodiscard]] std::unique_ptr<MetaTag> clone() const override;
    [[nodiscard]] TagValue value() const override { return value_; }
    bool setValue(const TagValue& value) override;
    [[nodiscard]] std::optional<std::string> valueText(std::size_t limit) const override;

private:
    [[nodiscard]] bool write_value(kx_file& to) const override;
    void read_value(kx_file& from) override;
    [[nodiscard]] std::uint32_t value_size() const override;

    std::uint32_t value_;
};

// A tag with the empty value of its type (no text, 0, zero bytes). Null for an unknown type, which
// is printed.
[[nodiscard]] std::unique_ptr<MetaTag> makeTag(std::uint8_t type, TagText name);
// A tag of the value's type.
[[nodiscard]] std::unique_ptr<MetaTag> makeTag(TagText name, const TagValue& value);
// A tag named by id. It has the value's type, whatever the table says about the id.
[[nodiscard]] std::unique_ptr<MetaTag> makeTagById(TagId id, const TagValue& value);
// A tag with the name and id of another and a value of another type.
[[nodiscard]] std::unique_ptr<MetaTag> retyped(const MetaTag& tag, const TagValue& value);

// Reads one tag of any type. Null when there is none to read: an unknown type is printed, bytes
// that end early are not.
[[nodiscard]] std::unique_ptr<MetaTag> tagFromBytes(kx_file& from);

}  // namespace vorrim
