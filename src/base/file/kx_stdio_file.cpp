#include "base/file/kx_stdio_file.h"

#include <algorithm>
#include <cstdio>
#include <limits>

namespace vorrim {

namespace {

std::size_t one_move(std::uint32_t count) noexcept {
    return std::min<std::uint32_t>(count, std::numeric_limits<std::int32_t>::max());
}

}  // namespace

void kx_stdio_file::flush() {
    std::fflush(stdout);
}

std::int32_t kx_stdio_file::read(void* buffer, std::uint32_t count) {
    return static_cast<std::int32_t>(std::fread(buffer, 1, one_move(count), stdin));
}

std::int32_t kx_stdio_file::write(const void* bytes, std::uint32_t count) {
    return static_cast<std::int32_t>(std::fwrite(bytes, 1, one_move(count), stdout));
}

std::uint32_t kx_stdio_file::seek(std::uint32_t /*position*/) {
    return 0;
}

}  // namespace vorrim
