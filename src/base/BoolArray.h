#pragma once
// A fixed number of bits, and their form in a stream:
//
//     [ count u16 | count / 8 + 1 bytes ]      bit i: byte i / 8, bit i mod 8 from the least
//                                              significant; a count of 0 has no bytes
//
// Threads: none inside.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/file/kx_file.h"

namespace vorrim {

class BoolArray final {
public:
    // All bits clear.
    explicit BoolArray(std::int32_t count);

    [[nodiscard]] std::int32_t count() const noexcept { return count_; }
    [[nodiscard]] std::size_t storage_bytes() const noexcept { return bits_.size(); }

    // The caller keeps the index within 0 .. count - 1.
    [[nodiscard]] bool get(std::int32_t index) const noexcept;
    void set(std::int32_t index, bool value) noexcept;

    // Only a count of up to 65,535 can be told.
    void write(kx_file& to) const;
    // Raises kx_err when the bytes are not there; the array is as it was then.
    void read(kx_file& from);

private:
    std::int32_t count_;
    std::vector<std::uint8_t> bits_;
};

}  // namespace vorrim
