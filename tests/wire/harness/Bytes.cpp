#include "tests/wire/harness/Bytes.h"

namespace vorrim::wire {

Bytes& Bytes::u8(std::uint32_t value) {
    bytes_.push_back(static_cast<std::uint8_t>(value & 0xFF));
    return *this;
}

Bytes& Bytes::u16(std::uint32_t value) {
    return u8(value).u8(value >> 8);
}

Bytes& Bytes::u32(std::uint32_t value) {
    return u16(value).u16(value >> 16);
}

Bytes& Bytes::raw(std::string_view bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return *this;
}

Bytes& Bytes::add(const Bytes& more) {
    bytes_.insert(bytes_.end(), more.bytes_.begin(), more.bytes_.end());
    return *this;
}

Bytes& Bytes::fill(std::size_t count, std::uint8_t value) {
    bytes_.insert(bytes_.end(), count, value);
    return *this;
}

Bytes& Bytes::text(std::string_view text) {
    return u16(static_cast<std::uint32_t>(text.size())).raw(text);
}

Bytes Bytes::first(std::size_t count) const {
    return Bytes(std::span(bytes_).first(std::min(count, bytes_.size())));
}

Bytes Bytes::from(std::size_t offset) const {
    return Bytes(std::span(bytes_).subspan(std::min(offset, bytes_.size())));
}

Bytes hex(std::string_view digits) {
    Bytes bytes;
    std::string pair;
    for (const char c : digits) {
        if (c == ' ' || c == '\n') continue;
        pair += c;
        if (pair.size() == 2) {
            bytes.u8(static_cast<std::uint32_t>(std::stoul(pair, nullptr, 16)));
            pair.clear();
        }
    }
    if (!pair.empty()) throw WireFailure("an odd number of hexadecimal digits");
    return bytes;
}

void PrintTo(const Bytes& bytes, std::ostream* out) {
    constexpr std::size_t kShown = 600;
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    *out << bytes.size() << " bytes:";
    for (std::size_t i = 0; i < std::min(bytes.size(), kShown); ++i)
        *out << ' ' << kDigits[bytes[i] >> 4U] << kDigits[bytes[i] & 0xFU];
    if (bytes.size() > kShown) *out << " ...";
}

}  // namespace vorrim::wire
