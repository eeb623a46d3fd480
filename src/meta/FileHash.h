#pragma once
// The 16-byte key of a file or a client: opaque, compared byte by byte, printed as 32 lower-case
// hexadecimal digits. A plain value; any thread.

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "base/file/kx_memory_file.h"
#include "base/file/primitives.h"

namespace vorrim {

inline constexpr std::size_t kHashSize = 16;

struct FileHash {
    std::array<std::byte, kHashSize> bytes{};

    friend bool operator==(const FileHash& one, const FileHash& other) noexcept {
        return std::memcmp(one.bytes.data(), other.bytes.data(), kHashSize) == 0;
    }
    friend auto operator<=>(const FileHash&, const FileHash&) noexcept = default;

    // The first four bytes, little-endian: what the buckets of the index are chosen by.
    [[nodiscard]] std::uint32_t first_u32() const noexcept { return load_32(bytes.data()); }

    // Copies 16 bytes; they must be there.
    [[nodiscard]] static FileHash at(const std::byte* source) noexcept {
        FileHash hash;
        std::memcpy(hash.bytes.data(), source, kHashSize);
        return hash;
    }

    // Takes the next 16 bytes of the stream; raises "readAll error" when there are fewer.
    [[nodiscard]] static FileHash read(kx_memory_file& from) {
        return at(from.take(kHashSize).data());
    }
};

static_assert(sizeof(FileHash) == kHashSize);

[[nodiscard]] std::string hashToHex(const FileHash& hash);

// The hash of exactly 32 hexadecimal digits of either case; nothing for any other text.
[[nodiscard]] std::optional<FileHash> hexToHash(std::string_view text);

}  // namespace vorrim
