#pragma once
// What the targets share: how they cut their input into pieces, silence, and a claim that ends the
// run when it is wrong.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string_view>

#include "base/file/kx_memory_file.h"
#include "tests/base/RecordingOutput.h"

namespace vorrim::fuzz {

// The input as a row of small decisions and pieces. Past the end every decision is 0 and every
// piece empty.
class Input final {
public:
    Input(const std::uint8_t* data, std::size_t size)
        : rest_(std::as_bytes(std::span(data, size))) {}

    [[nodiscard]] bool empty() const noexcept { return rest_.empty(); }
    std::uint8_t u8() {
        const auto byte = piece(1);
        return byte.empty() ? std::uint8_t{0} : std::to_integer<std::uint8_t>(byte[0]);
    }
    std::span<const std::byte> piece(std::size_t size) {
        const auto taken = rest_.first(std::min(size, rest_.size()));
        rest_ = rest_.subspan(taken.size());
        return taken;
    }
    // A piece behind its own length, two bytes with the lower first.
    std::span<const std::byte> counted() {
        const std::size_t low = u8();
        return piece(low | static_cast<std::size_t>(u8()) << 8U);
    }
    [[nodiscard]] std::span<const std::byte> rest() const noexcept { return rest_; }
    [[nodiscard]] kx_memory_file stream() const { return kx_memory_file::reading(rest_); }

private:
    std::span<const std::byte> rest_;
};

[[nodiscard]] inline std::string_view as_text(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

inline void must(bool holds) {
    if (!holds) std::abort();
}

// What is printed meanwhile, chatter too, is formatted as by every output, and nobody sees it.
class Quiet final : public RecordingOutput {
public:
    Quiet() { set_verbose(true); }
};

}  // namespace vorrim::fuzz
