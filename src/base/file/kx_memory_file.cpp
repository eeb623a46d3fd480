#include "base/file/kx_memory_file.h"

#include <algorithm>
#include <limits>

#include "base/kx_err.h"
#include "base/memory/malloc4.h"

namespace vorrim {

namespace {

constexpr std::uint32_t kLargestStream = std::numeric_limits<std::uint32_t>::max();
// A single read or write says what it moved as a signed number.
constexpr std::uint32_t kLargestMove = std::numeric_limits<std::int32_t>::max();

std::uint32_t stream_length(std::size_t length) noexcept {
    return static_cast<std::uint32_t>(std::min<std::size_t>(length, kLargestStream));
}

}  // namespace

kx_memory_file::kx_memory_file(const std::byte* data, std::uint32_t size, Kind kind) noexcept
    // The kind keeps bytes that are only for reading from being written.
    : data_(const_cast<std::byte*>(data)), capacity_(size), size_(size), kind_(kind) {}

kx_memory_file::kx_memory_file(std::span<std::byte> bytes) noexcept
    : kx_memory_file(bytes.data(), stream_length(bytes.size()), Kind::fixed) {}

kx_memory_file kx_memory_file::reading(std::span<const std::byte> bytes) noexcept {
    return {bytes.data(), stream_length(bytes.size()), Kind::reading};
}

kx_memory_file::~kx_memory_file() {
    if (kind_ == Kind::owning) kx_free(data_);
}

std::int32_t kx_memory_file::read(void* buffer, std::uint32_t count) {
    count = std::min({count, remaining(), kLargestMove});
    if (count != 0) std::memcpy(buffer, advance(count), count);
    return static_cast<std::int32_t>(count);
}

std::int32_t kx_memory_file::write(const void* bytes, std::uint32_t count) {
    count = std::min(count, kLargestMove);
    if (count > room() && !grow(count)) count = room();
    if (count != 0) std::memcpy(extend(count), bytes, count);
    return static_cast<std::int32_t>(count);
}

std::uint32_t kx_memory_file::seek(std::uint32_t position) {
    if (position > capacity_ && !grow(std::uint64_t{position} - position_)) position = capacity_;
    if (position > size_) {
        // What is skipped must not carry old memory into what is sent.
        if (kind_ != Kind::reading) std::memset(data_ + size_, 0, position - size_);
        size_ = position;
    }
    position_ = position;
    return position_;
}

void* kx_memory_file::map(std::uint32_t offset, std::uint32_t length, std::uint32_t mode) {
    if (data_ == nullptr || offset > capacity_ || length > capacity_ - offset) return nullptr;
    if (kind_ == Kind::reading && (mode & KX_FILE_WRITE) != 0) return nullptr;
    return data_ + offset;
}

bool kx_memory_file::unmap(void* /*bytes*/, std::uint32_t /*length*/) {
    return true;
}

kx_memory_file kx_memory_file::clone() const noexcept {
    kx_memory_file other(data_, size_, kind_ == Kind::reading ? Kind::reading : Kind::fixed);
    other.position_ = position_;
    return other;
}

void kx_memory_file::raise_short(const char* text) {
    position_ = size_;
    kx_error(text);
}

bool kx_memory_file::grow(std::uint64_t count) {
    if (kind_ != Kind::owning || growth_ == 0) return false;
    const std::uint64_t needed = position_ + count;
    const std::uint64_t steps = (needed - capacity_ + growth_ - 1) / growth_;
    const std::uint64_t capacity = capacity_ + steps * growth_;
    if (capacity > kLargestStream) kx_error("out of memory");
    if (capacity > allocated_) {
        // Doubling underneath, so that a long stream written in small pieces is not moved each
        // step.
        const std::uint64_t doubled =
            std::min<std::uint64_t>(std::uint64_t{allocated_} * 2, kLargestStream);
        const std::uint64_t wanted = std::max(capacity, doubled);
        data_ = static_cast<std::byte*>(kx_realloc(data_, wanted));
        allocated_ = static_cast<std::uint32_t>(wanted);
    }
    capacity_ = static_cast<std::uint32_t>(capacity);
    return true;
}

void kx_memory_file::swap(kx_memory_file& other) noexcept {
    std::swap(data_, other.data_);
    std::swap(capacity_, other.capacity_);
    std::swap(position_, other.position_);
    std::swap(growth_, other.growth_);
    std::swap(size_, other.size_);
    std::swap(allocated_, other.allocated_);
    std::swap(kind_, other.kind_);
}

}  // namespace vorrim
