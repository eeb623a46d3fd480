#pragma once
#include <cstdint>

namespace vorrim {

// 2^64 divided by the golden ratio: an odd number whose bits have no pattern. Multiplied by it,
// numbers that lie close together are spread over all 64 bits.
inline constexpr std::uint64_t kGoldenRatio = 0x9E3779B97F4A7C15;

}  // namespace vorrim
