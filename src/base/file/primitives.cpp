#include "base/file/primitives.h"

#include <array>
#include <string>

#include "base/kx_err.h"

namespace vorrim {

namespace {

// One byte at a time, so that a stream that gives one and no more has given that one.
template <std::size_t Size>
std::array<std::byte, Size> read_each(kx_file& from, const char* error) {
    std::array<std::byte, Size> bytes;
    for (std::byte& byte : bytes)
        if (from.read(&byte, 1) != 1) kx_error(error);
    return bytes;
}

std::uint16_t read_text_length(kx_file& from) {
    const std::uint16_t count = read_16(from);
    if (count == kNoTextLength) kx_error("read string error");
    return count;
}

}  // namespace

std::uint8_t read_8(kx_file& from) {
    return load_8(read_each<1>(from, "read_8 error").data());
}

std::uint16_t read_16(kx_file& from) {
    return load_16(read_each<2>(from, "read_16 error").data());
}

std::uint32_t read_32(kx_file& from) {
    return load_32(read_each<4>(from, "read_32 error").data());
}

void readAll(kx_file& from, void* buffer, std::uint32_t count) {
    auto* const bytes = static_cast<std::byte*>(buffer);
    std::uint32_t done = 0;
    while (done < count) {
        const std::int32_t got = from.read(bytes + done, count - done);
        if (got <= 0) kx_error("readAll error");
        done += static_cast<std::uint32_t>(got);
    }
}

kx_string read_string(kx_file& from) {
    std::string text(read_text_length(from), '\0');
    readAll(from, text.data(), static_cast<std::uint32_t>(text.size()));
    return kx_string(std::string_view(text));
}

void write_8(kx_file& to, std::uint8_t value) {
    to.write(&value, 1);
}

void write_16(kx_file& to, std::uint16_t value) {
    std::array<std::byte, 2> bytes;
    store_16(bytes.data(), value);
    to.write(bytes.data(), bytes.size());
}

void write_32(kx_file& to, std::uint32_t value) {
    std::array<std::byte, 4> bytes;
    store_32(bytes.data(), value);
    to.write(bytes.data(), bytes.size());
}

void write_bytes(kx_file& to, std::span<const std::byte> bytes) {
    to.write(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
}

void write_string(std::string_view text, kx_file& to) {
    if (text.size() >= kNoTextLength) kx_error("write string error");
    const auto count = static_cast<std::uint16_t>(text.size());
    std::array<std::byte, 2> head;
    store_16(head.data(), count);
    if (to.write(head.data(), head.size()) != static_cast<std::int32_t>(head.size()) ||
        to.write(text.data(), count) != count)
        kx_error("write string error");
}

void write_string(const kx_string& text, kx_file& to) {
    write_string(text.view(), to);
}

std::span<const std::byte> take_string(kx_memory_file& from) {
    const std::uint16_t count = read_16(from);
    if (count == kNoTextLength) kx_error("read string error");
    return from.take(count);
}

kx_string read_string(kx_memory_file& from) {
    return kx_string(text_of(take_string(from)));
}

void write_string(std::string_view text, kx_memory_file& to) {
    if (text.size() >= kNoTextLength) kx_error("write string error");
    const auto count = static_cast<std::uint32_t>(text.size());
    std::byte* const place = to.extend(2 + count);
    if (place == nullptr) return write_string(text, static_cast<kx_file&>(to));
    store_16(place, static_cast<std::uint16_t>(count));
    if (count != 0) std::memcpy(place + 2, text.data(), count);
}

}  // namespace vorrim
