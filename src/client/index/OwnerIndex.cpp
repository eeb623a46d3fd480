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

std::vector<std::uint32_t> OwnerIndex::Handles::sorted() const {
    std::vector<std::uint32_t> handles;
    handles.reserve(runs_.size());
    const std::uint8_t* at = runs_.data();
    const std::uint8_t* const end = at + runs_.size();
    while (at != end) {
        std::uint32_t handle = 0;
        for (std::uint32_t left = take_number(at); left != 0; --left) {
            handle += take_number(at);
            handles.push_back(handle);
        }
    }
    std::sort(handles.begin(), handles.end());
    return handles;
}

OwnerIndex::Owner* OwnerIndex::find(ClientId client) const noexcept {
    return owners_.find(owners_.hasher().keyed.of(client.value()),
                        [client](const Owner& owner) { return owner.id == client.value(); });
}

void OwnerIndex::add(ClientId client, std::vector<std::uint32_t>& handles) {
    if (handles.empty()) return;
    std::sort(handles.begin(), handles.end());
    std::vector<std::uint8_t> run((handles.size() + 1) * kLongestNumber);
    std::uint8_t* end = put_number(run.data(), static_cast<std::uint32_t>(handles.size()));
    std::uint32_t last = 0;
    for (const std::uint32_t handle : handles) {
        end = put_number(end, handle - last);
        last = handle;
    }
    run.resize(static_cast<std::size_t>(end - run.data()));

    Owner* owner = find(client);
    if (owner == nullptr) {
        owner = &owners_.insert(owners_.hasher().keyed.of(client.value()));
        owner->id = client.value();
        owner->runs = std::make_unique<std::vector<std::uint8_t>>();
    }
    std::vector<std::uint8_t>& runs = *owner->runs;
    const std::size_t size = runs.size() + run.size();
    if (size > runs.capacity()) runs.reserve(std::max(size, runs.capacity() + runs.capacity() / 4));
    runs.insert(runs.end(), run.begin(), run.end());
}

OwnerIndex::Handles OwnerIndex::take(ClientId client) noexcept {
    Handles handles;
    if (Owner* const owner = find(client)) {
        handles.runs_ = std::move(*owner->runs);
        owners_.erase(*owner);
    }
    return handles;
}

std::size_t OwnerIndex::heap_bytes() const noexcept {
    std::size_t bytes = owners_.heap_bytes();
    owners_.for_each(
        [&](const Owner& owner) { bytes += sizeof(*owner.runs) + owner.runs->capacity(); });
    return bytes;
}

}  // namespace vorrim
