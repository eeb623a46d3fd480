#pragma once
// A record: what describes a shared file, a client or a server.
//
//     network   [ hash 16 | id u32 | port u16 | tag count u32 | tags ]
//     disk      [ reserved u32 | hash 16 | extra count u16 | extra hashes | tag count u32 | tags ]
//
// The form to build and change records in, for servers and settings. What the server holds in great
// numbers is a FrozenRecord, which has the same network form.
//
// Ownership   A record owns its tags. Tags that an operation returns live until the tag is removed,
//             replaced or set to a value of another type.
// Threads     None inside; a record in a list is protected by the list's lock.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "meta/FileHash.h"
#include "meta/MetaTag.h"
#include "meta/Serializable.h"
#include "meta/TagNames.h"

namespace vorrim {

class Meta : public Serializable {
public:
    Meta() = default;
    Meta(const Meta&) = delete;
    Meta& operator=(const Meta&) = delete;

    [[nodiscard]] const FileHash& hash() const noexcept { return hash_; }
    void setHash(const FileHash& hash) noexcept { hash_ = hash; }
    // A client's identifier; for a server, its address. An address has its first number in the
    // lowest byte.
    [[nodiscard]] std::uint32_t id() const noexcept { return id_; }
    void setId(std::uint32_t id) noexcept { id_ = id; }
    [[nodiscard]] std::uint16_t port() const noexcept { return port_; }
    void setPort(std::uint16_t port) noexcept { port_ = port; }
    // Travels only in the disk form, as the extra hashes do.
    [[nodiscard]] std::uint32_t reserved() const noexcept { return reserved_; }
    [[nodiscard]] const std::vector<FileHash>& extraHashes() const noexcept { return extra_; }

    [[nodiscard]] const std::vector<std::unique_ptr<MetaTag>>& tags() const noexcept {
        return tags_;
    }

    // False when a tag cannot be encoded, which has been printed.
    [[nodiscard]] bool toNetwork(kx_file& to) const override;
    // Appends the tags read to those that are there. False when the bytes are no record: tags read
    // so far stay, and unless the bytes ended before the tag count it has been printed.
    [[nodiscard]] bool fromNetwork(kx_file& from) override;
    [[nodiscard]] bool toDisk(kx_file& to) const override;
    // Replaces tags and extra hashes. False when a tag cannot be decoded, which has been printed.
    // Raises kx_err when the bytes end before the tag count.
    [[nodiscard]] bool fromDisk(kx_file& from) override;
    // An estimate for sizing a packet: the network form is six bytes shorter.
    [[nodiscard]] std::uint32_t size() const override;

    // Names are compared byte by byte; a tag without a name is never found.
    [[nodiscard]] MetaTag* findTag(std::string_view name) noexcept;
    [[nodiscard]] const MetaTag* findTag(std::string_view name) const noexcept;
    // Nothing when there is no such tag.
    [[nodiscard]] std::optional<TagValue> getTagValue(std::string_view name) const;
    // An integer tag's value, the first four bytes of any other; 0 when there is no such tag.
    [[nodiscard]] std::uint32_t getIntTag(std::string_view name) const;
    // A text tag's text; nothing for other types, for a missing text and for no such tag.
    [[nodiscard]] TagText getTextTag(std::string_view name) const;

    // Peers choose the types of their tags, so the tag of that name may be of another type than the
    // value: it then becomes a tag of the value's type, in its place and with its name.
    // False when there is no such tag.
    bool setTagValue(std::string_view name, const TagValue& value);
    // The same, and adds a tag of that name when there is none.
    void setTag(std::string_view name, const TagValue& value);
    void setTagById(TagId id, const TagValue& value);
    void setName(TagText text) { setTagById(TagId::Name, text); }
    // Adds a tag with the empty value; false when the name is taken or the type unknown.
    bool addTag(std::string_view name, std::uint8_t type);
    void add(std::unique_ptr<MetaTag> tag);
    void removeTag(std::string_view name);
    void clearTags() noexcept { tags_.clear(); }

    // Everything but the reserved word; other's extra hashes are appended to those that are there.
    virtual void copyFrom(const Meta& other);

    // One line for the record, one per tag, one for the hash, on the current output.
    void print() const;

protected:
    [[nodiscard]] bool tags_to(kx_file& to, Form form) const;
    // Reads the count and the tags, which replace those that are there. False at the first that
    // cannot be decoded; the caller says whose it was.
    [[nodiscard]] bool tags_from_disk(kx_file& from);

private:
    [[nodiscard]] bool append_tags(kx_file& from);
    [[nodiscard]] std::vector<std::unique_ptr<MetaTag>>::iterator position(std::string_view name);

    std::vector<std::unique_ptr<MetaTag>> tags_;
    std::vector<FileHash> extra_;
    FileHash hash_;
    std::uint32_t reserved_ = 0;
    std::uint32_t id_ = 0;
    std::uint16_t port_ = 0;
};

}  // namespace vorrim
