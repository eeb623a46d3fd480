#include "client/index/EntrySlab.h"

#include <new>
#include <utility>

namespace vorrim {

std::uint32_t EntrySlab::add() {
    if (free_ != kNone) {
        --free_count_;
        return std::exchange(free_, (*this)[free_].row);
    }
    if (used_ == kNone) throw std::bad_alloc();
    if (used_ == chunks_.size() * kChunk) chunks_.push_back(std::make_unique<FileEntry[]>(kChunk));
    return used_++;
}

void EntrySlab::remove(std::uint32_t handle) noexcept {
    FileEntry& entry = (*this)[handle];
    entry.record = FrozenRecord();
    entry.reachable = 0;
    entry.row = std::exchange(free_, handle);
    ++free_count_;
}

}  // namespace vorrim
