#pragma once
// What a file is opened or mapped for: flags, to be combined.

#include <cstdint>

namespace vorrim {

inline constexpr std::uint32_t KX_FILE_READ = 1;
inline constexpr std::uint32_t KX_FILE_WRITE = 2;
inline constexpr std::uint32_t KX_FILE_CREATE = 8;  // a new file, or an existing one emptied

}  // namespace vorrim
