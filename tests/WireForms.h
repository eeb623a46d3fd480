#pragma once
// Bytes that are built as the wire tests build them, on their way into the server's own readers,
// and those that the server has written, as the wire tests compare them.

#include <cstdint>
#include <span>

#include "base/file/kx_memory_file.h"
#include "meta/FileHash.h"
#include "tests/wire/harness/Wire.h"

namespace vorrim::test {

inline std::span<const std::byte> span_of(const wire::Bytes& bytes) {
    return std::as_bytes(std::span(bytes.data(), bytes.size()));
}
// Reads them where they are.
inline kx_memory_file stream_of(const wire::Bytes& bytes) {
    return kx_memory_file::reading(span_of(bytes));
}
inline wire::Bytes bytes_of(std::span<const std::byte> bytes) {
    return wire::Bytes({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
}
inline FileHash file_hash(const wire::Hash& hash) {
    return FileHash::at(std::as_bytes(std::span(hash.bytes)).data());
}

}  // namespace vorrim::test
