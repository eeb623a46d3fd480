#include "client/RoomList.h"

#include <algorithm>

#include "base/file/primitives.h"

namespace vorrim {

namespace {

constexpr std::int32_t kFirstRoomId = 2;
constexpr std::size_t kMostListed = 255;

}  // namespace

void RoomList::add(std::string_view name) {
    const auto id = static_cast<std::int32_t>(rooms_.size()) + kFirstRoomId;
    rooms_.push_back(std::make_unique<Room>(id, writable_part(name)));
}

Room* RoomList::find(std::int32_t id) const {
    const std::int64_t index = std::int64_t{id} - kFirstRoomId;
    if (index < 0 || index >= static_cast<std::int64_t>(rooms_.size())) return nullptr;
    return rooms_[static_cast<std::size_t>(index)].get();
}

void RoomList::write_list(kx_memory_file& out) const {
    const std::size_t count = std::min(rooms_.size(), kMostListed);
    write_8(out, static_cast<std::uint8_t>(count));
    for (std::size_t i = 0; i < count; ++i) {
        write_string(rooms_[i]->name(), out);
        write_16(out, static_cast<std::uint16_t>(rooms_[i]->member_count()));
        write_16(out, static_cast<std::uint16_t>(rooms_[i]->id()));
    }
}

}  // namespace vorrim
