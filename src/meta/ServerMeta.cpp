#include "meta/ServerMeta.h"

#include <vector>

#include "base/Output.h"
#include "base/kx_err.h"
#include "meta/ClientId.h"

namespace vorrim {

namespace {

constexpr std::string_view kUsers = "users";
constexpr std::string_view kFiles = "files";

}  // namespace

bool ServerMeta::setAddress(std::string_view address, std::uint16_t port) {
    setPort(port);
    setId(textToIp(address));
    setTagById(TagId::Port, std::uint32_t{port});
    setTagById(TagId::IP, id());
    return id() != 0;
}

bool ServerMeta::fromNetwork(kx_file& from) {
    if (!Meta::fromNetwork(from)) return false;
    normalise();
    return true;
}

bool ServerMeta::toDisk(kx_file& to) const {
    constexpr std::string_view kHistory = wire_name(TagId::History);
    const std::unique_ptr<MetaTag> history = makeTagById(TagId::History, this->history());
    std::vector<const MetaTag*> written;
    written.reserve(tags().size() + 1);
    const MetaTag* const replaced = findTag(kHistory);
    for (const auto& tag : tags()) {
        written.push_back(tag.get() == replaced ? history.get() : tag.get());
    }
    if (replaced == nullptr) written.push_back(history.get());
    try {
        write_32(to, id());
        write_16(to, port());
        return saveList(written, to, Form::disk);
    } catch (const kx_err&) {
        return false;
    }
}

bool ServerMeta::fromDisk(kx_file& from) {
    setId(read_32(from));
    setPort(read_16(from));
    if (!tags_from_disk(from)) {
        current_output().printError("ERROR: ServerMeta::fromDisk()\n");
        return false;
    }
    normalise();
    return true;
}

void ServerMeta::copyFrom(const Meta& other) {
    Meta::copyFrom(other);
    normalise();
}

void ServerMeta::normalise() {
    setHistory(getIntTag(wire_name(TagId::History)));
    if (id() != 0) {
        setTagById(TagId::Port, std::uint32_t{port()});
        setTagById(TagId::IP, id());
    } else {
        setId(getIntTag(wire_name(TagId::IP)));
        setPort(static_cast<std::uint16_t>(getIntTag(wire_name(TagId::Port)) & 0xFFFFU));
    }
    setTagById(TagId::Ping, std::uint32_t{0});
    setTag(kUsers, std::uint32_t{0});
    setTag(kFiles, std::uint32_t{0});
}

}  // namespace vorrim
