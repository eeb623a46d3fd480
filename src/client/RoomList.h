#pragma once
// The chat rooms that the settings name, in their order. Made at start-up, constant afterwards.

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "base/file/kx_memory_file.h"
#include "client/Room.h"

namespace vorrim {

class RoomList final {
public:
    // Adds a room; the first one has the identifier 2. A name is kept as far as clients can be told
    // of it. Before other threads know the list.
    void add(std::string_view name);
    // The room with this identifier, or null. Any thread.
    [[nodiscard]] Room* find(std::int32_t id) const;
    // Appends the rooms as a client receives them: count (u8), then name, members (u16) and
    // identifier (u16) of each. Only as many as the count byte can say are listed. Any thread.
    void write_list(kx_memory_file& out) const;

private:
    std::vector<std::unique_ptr<Room>> rooms_;
};

}  // namespace vorrim
