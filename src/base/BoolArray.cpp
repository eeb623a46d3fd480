#include "base/BoolArray.h"

#include <algorithm>
#include <cassert>
#include <span>
#include <utility>

#include "base/file/primitives.h"

namespace vorrim {

namespace {

constexpr std::size_t kBitsPerByte = 8;

std::size_t storage_for(std::int32_t count) noexcept {
    return static_cast<std::size_t>(count) / kBitsPerByte + 1;
}

}  // namespace

BoolArray::BoolArray(std::int32_t count)
    : count_(std::max(count, 0)), bits_(storage_for(count_), 0) {}

bool BoolArray::get(std::int32_t index) const noexcept {
    assert(index >= 0 && index < count_);
    const auto bit = static_cast<std::size_t>(index);
    return (bits_[bit / kBitsPerByte] >> (bit % kBitsPerByte) & 1U) != 0;
}

void BoolArray::set(std::int32_t index, bool value) noexcept {
    assert(index >= 0 && index < count_);
    const auto bit = static_cast<std::size_t>(index);
    const auto mask = static_cast<std::uint8_t>(1U << (bit % kBitsPerByte));
    std::uint8_t& byte = bits_[bit / kBitsPerByte];
    byte = static_cast<std::uint8_t>(value ? byte | mask : byte & ~mask);
}

void BoolArray::write(kx_file& to) const {
    write_16(to, static_cast<std::uint16_t>(count_ & 0xFFFF));
    if (count_ != 0) write_bytes(to, std::as_bytes(std::span(bits_)));
}

void BoolArray::read(kx_file& from) {
    const std::int32_t count = read_16(from);
    std::vector<std::uint8_t> bits(count != 0 ? storage_for(count) : 0, 0);
    readAll(from, bits.data(), static_cast<std::uint32_t>(bits.size()));
    count_ = count;
    bits_ = std::move(bits);
}

}  // namespace vorrim
