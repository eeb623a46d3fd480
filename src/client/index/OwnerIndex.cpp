#include "client/index/OwnerIndex.h"

#include <algorithm>

namespace vorrim {
namespace {

constexpr int kGroupBits = 7;
constexpr std::uint32_t kMoreFollows = 1u << kGroupBits;
constexpr std::size_t kLongestNumber = 5;

std::uint8_t* put_number(std::uint8_t* to, std::uint32_t number) noexcept {
    for (; number >= kMoreFollows; number >>= kGroupBits)
        *to++ = static_cast<std::uint8_t>(number | kMoreFollows);
    *to++ = static_cast<std::uint8_t>(number);
    return to;
}

std::uint32_t take_number(const std::uint8_t*& from) noexcept {
    std::uint32_t number = 0;
    for (int shift = 0;; shift += kGroupBits) {
        const std::uint32_t group = *from++;
        number |= (group & (kMoreFollows - 1)) << shift;
        if (group < kMoreFollows) return number;
    }
}

}  // namespace

std::size_t OwnerIndex::Handles::read(std::span<std::uint32_t> to) noexcept {
    if (!runs_) return 0;
    const std::uint8_t* at = runs_->data() + at_;
    const std::uint8_t* const end = runs_->data() + runs_->size();
    std::size_t count = 0;
    for (; count < to.size() && at != end; ++count) {
        if (left_ == 0) {
            left_ = take_number(at);
            last_ = 0;
        }
        to[count] = last_ += take_number(at);
        --left_;
    }
    at_ = static_cast<std::size_t>(at - runs_->data());
    if (at == end) runs_.reset();
    return count;
}

OwnerIndex::Owner* OwnerIndex::find(ClientId client) const noexcept {
    return owners_.find(owners_.hasher().keyed.of(client.value()),
                        [client](const Owner& owner) { return owner.id == client.value(); });
}

void OwnerIndex::make_room(ClientId client, std::size_t handles) {
    Owner* owner = find(client);
    if (owner == nullptr) {
        auto runs = std::make_unique<std::vector<std::uint8_t>>();
        owner = &owners_.insert(owners_.hasher().keyed.of(client.value()));
        owner->id = client.value();
        owner->runs = std::move(runs);
    }
    std::vector<std::uint8_t>& runs = *owner->runs;
    const std::size_t size = runs.size() + (handles + 1) * kLongestNumber;
    try {
        if (size > runs.capacity())
            runs.reserve(std::max(size, runs.capacity() + runs.capacity() / 4));
    } catch (const std::bad_alloc&) {
        if (runs.empty()) owners_.erase(*owner);
        throw;
    }
}

void OwnerIndex::add(ClientId client, std::span<std::uint32_t> handles) noexcept {
    Owner& owner = *find(client);
    std::vector<std::uint8_t>& runs = *owner.runs;
    if (handles.empty()) {
        if (runs.empty()) owners_.erase(owner);
        return;
    }
    std::sort(handles.begin(), handles.end());
    const std::size_t before = runs.size();
    runs.resize(before + (handles.size() + 1) * kLongestNumber);
    std::uint8_t* end =
        put_number(runs.data() + before, static_cast<std::uint32_t>(handles.size()));
    std::uint32_t last = 0;
    for (const std::uint32_t handle : handles) {
        end = put_number(end, handle - last);
        last = handle;
    }
    runs.resize(static_cast<std::size_t>(end - runs.data()));
    // Most numbers take less than the room that was made for the longest.
    if (runs.capacity() - runs.size() > runs.size() / 4) runs.shrink_to_fit();
}

OwnerIndex::Handles OwnerIndex::take(ClientId client) noexcept {
    Handles handles;
    if (Owner* const owner = find(client)) {
        handles.runs_ = std::move(owner->runs);
        owners_.erase(*owner);
    }
    return handles;
}

}  // namespace vorrim
